# Compares the dynamic symbols the shared library defines with the
# checked-in list, so that any change of the interface is a visible change
# of that file. Usage: cmake -DLIB=... -DEXPECTED=... -P check_exports.cmake
execute_process(COMMAND nm -D --defined-only ${LIB} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX REPLACE "[^\n]* [A-Za-z] ([^\n]+)" "\\1" names "${out}")
string(REPLACE "\n" ";" names "${names}")
list(FILTER names EXCLUDE REGEX "^$")
list(SORT names)
file(STRINGS ${EXPECTED} expected)
list(SORT expected)
if(NOT names STREQUAL expected)
  string(REPLACE ";" "\n  " got "${names}")
  message(FATAL_ERROR "exported symbols differ from ${EXPECTED}; the library exports:\n  ${got}")
endif()
foreach(n IN LISTS names)
  if(n MATCHES "^_Z")
    message(FATAL_ERROR "mangled symbol exported: ${n}")
  endif()
endforeach()

# Hosts link a C library: it needs nothing of the C++ runtime.
execute_process(COMMAND nm -D --undefined-only ${LIB} OUTPUT_VARIABLE needed)
if(needed MATCHES "([A-Za-z0-9_]+@(CXXABI|GLIBCXX)[0-9_.]*)")
  message(FATAL_ERROR "the library needs the C++ runtime (${CMAKE_MATCH_1})")
endif()
