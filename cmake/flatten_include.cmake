# Copies a library header for applets: its export include becomes the sibling "ruvo_export.h",
# and host headers laid out beside it are included as siblings too.
file(READ "${IN}" text)
string(REPLACE "#include \"platform/export.h\"" "#include \"ruvo_export.h\"" text "${text}")
string(REPLACE "#include \"host/xcp/" "#include \"" text "${text}")
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.tmp")
