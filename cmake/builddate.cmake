# SPDX-License-Identifier: MIT
# Writes the source file OUTPUT with the time of the build; SOURCE_DATE_EPOCH sets another.
string(TIMESTAMP _date "%b %d %Y")
string(REGEX REPLACE " 0" "  " _date "${_date}") # as __DATE__ has it
string(TIMESTAMP _time "%H:%M:%S")
file(WRITE ${OUTPUT}
    "#include \"app/builddate.h\"\n"
    "const char *const buildDate = \"${_date}\";\n"
    "const char *const buildTime = \"${_time}\";\n")
