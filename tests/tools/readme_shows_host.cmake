# The README's example must be the program that the tests build and run. Argument: SOURCE_DIR
file(READ ${SOURCE_DIR}/README.md readme)
file(READ ${SOURCE_DIR}/examples/helloworld/main.cpp host)
string(FIND "${readme}" "${host}" place)
if(place EQUAL -1)
  message(FATAL_ERROR "README.md does not show examples/helloworld/main.cpp as it is")
endif()
