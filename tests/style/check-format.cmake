# Fails listing the files that clang-format would change.
file(GLOB_RECURSE files ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/src/*.h
  ${SOURCE_DIR}/tests/*.cpp ${SOURCE_DIR}/tests/*.h
  ${SOURCE_DIR}/bench/*.cpp ${SOURCE_DIR}/bench/*.h
  ${SOURCE_DIR}/guest/*.cpp ${SOURCE_DIR}/guest/*.h)
set(bad "")
foreach(f ${files})
  execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${f}
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
  if(NOT rc EQUAL 0)
    list(APPEND bad ${f})
  endif()
endforeach()
if(bad)
  list(JOIN bad "\n  " text)
  message(FATAL_ERROR "Not clang-format clean:\n  ${text}")
endif()
