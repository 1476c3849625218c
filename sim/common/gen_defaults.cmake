# Turns every file under SRC (sim/default-state) into an entry of the
# built-in default table, so the libraries and the directory never disagree.
file(GLOB_RECURSE files RELATIVE ${SRC} ${SRC}/*)
list(SORT files)
set(body "")
set(count 0)
foreach(rel IN LISTS files)
  if(rel MATCHES "(^|/)\\.keep$")
    continue()
  endif()
  file(READ ${SRC}/${rel} hex HEX)
  string(LENGTH "${hex}" hexlen)
  math(EXPR len "${hexlen} / 2")
  string(REGEX REPLACE "(..)" "\\\\x\\1" escaped "${hex}")
  string(APPEND body "    {\"${rel}\", \"${escaped}\", ${len}},\n")
  math(EXPR count "${count} + 1")
endforeach()
# Both libraries' builds may run this at once (make runs the command once per
# target): each writes a file of its own and renames it into place.
string(RANDOM LENGTH 12 tag)
set(tmp ${OUT}.${tag}.tmp)
file(WRITE ${tmp}
"// Generated from sim/default-state; edit those files instead.\n"
"#include \"defaults.h\"\n\nnamespace bsim {\n\n"
"const DefaultFile kDefaultFiles[] = {\n${body}    {nullptr, nullptr, 0},\n};\n"
"const size_t kDefaultFileCount = ${count};\n\n} // namespace bsim\n")
set(old "")
if(EXISTS ${OUT})
  file(READ ${OUT} old)
endif()
file(READ ${tmp} new)
if(old STREQUAL new)
  file(REMOVE ${tmp})
else()
  file(RENAME ${tmp} ${OUT})
endif()
