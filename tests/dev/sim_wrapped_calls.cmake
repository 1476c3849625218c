# Fails when the simulator calls a function its preload wraps (names read from
# the wrappers): that would re-enter the wrappers and journal its own file
# work. It must use raw system calls (sys::) or the real pointers (real().).
file(STRINGS ${SIM}/preload/interpose.cpp exports REGEX "^BSIM_EXPORT ")
set(names "")
foreach(line IN LISTS exports)
  string(REGEX MATCH "([A-Za-z0-9_]+)\\(" head "${line}")
  list(APPEND names ${CMAKE_MATCH_1})
endforeach()
list(LENGTH names count)
if(count LESS 5)
  message(FATAL_ERROR "found only '${names}' wrapped in interpose.cpp")
endif()

file(GLOB sources ${SIM}/common/*.h ${SIM}/common/*.cpp ${SIM}/driver/*.cpp
     ${SIM}/preload/*.h ${SIM}/preload/*.cpp)
set(bad "")
foreach(src IN LISTS sources)
  file(READ ${src} text)
  # Drop what cannot be a call: literals, comments, the sanctioned routes,
  # and the heads of the wrappers and raw calls that carry the same names.
  string(REGEX REPLACE "'([^'\\\\]|\\\\.)'" "''" text "${text}")
  string(REGEX REPLACE "\"([^\"\\\\]|\\\\.)*\"" "\"\"" text "${text}")
  string(REGEX REPLACE "//[^\n]*" "" text "${text}")
  string(REGEX REPLACE "(sys::|real\\(\\)\\.)[A-Za-z0-9_]+" "" text "${text}")
  string(REGEX REPLACE "(BSIM_EXPORT|inline) [^(\n]*\\(" "(" text "${text}")
  foreach(name IN LISTS names)
    if(text MATCHES "[^A-Za-z0-9_.>]${name}[ \t]*\\(")
      list(APPEND bad "${src}: ${name}()")
    endif()
  endforeach()
endforeach()
if(bad)
  list(JOIN bad "\n  " lines)
  message(FATAL_ERROR "simulator code calls wrapped functions:\n  ${lines}")
endif()
message(STATUS "no wrapped call among ${count} wrapped names")
