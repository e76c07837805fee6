# Copies a library header for applets: its export include becomes the sibling "ruvo_export.h".
file(READ "${IN}" text)
string(REPLACE "#include \"platform/export.h\"" "#include \"ruvo_export.h\"" text "${text}")
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
