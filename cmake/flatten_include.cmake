# Copies a library header for applets: its "RuvoManager/x.h" includes become sibling includes.
file(READ "${IN}" text)
string(REPLACE "#include \"RuvoManager/ruvo_export.h\"" "#include \"ruvo_export.h\"" text "${text}")
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
