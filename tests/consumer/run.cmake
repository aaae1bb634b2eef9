# Builds two small consumer projects against this package: one through an
# installed find_package(lmimage), one through add_subdirectory.
foreach(var SOURCE_DIR BUILD_DIR WORK_DIR GENERATOR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "run.cmake needs -D${var}=...")
  endif()
endforeach()

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()

set(here "${CMAKE_CURRENT_LIST_DIR}")

# Installed package.
run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
run(${CMAKE_COMMAND} -S "${here}/find_package" -B "${WORK_DIR}/find_package" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix" -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build "${WORK_DIR}/find_package")
run("${WORK_DIR}/find_package/consumer")

# pkg-config file of the installed package.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} "${WORK_DIR}/prefix/lib/pkgconfig")
  execute_process(COMMAND ${PKG_CONFIG} --libs --cflags lmimage RESULT_VARIABLE rc OUTPUT_VARIABLE flags)
  if(NOT rc EQUAL 0 OR NOT flags MATCHES "-llmimage")
    message(FATAL_ERROR "pkg-config lmimage failed: ${flags}")
  endif()
endif()

# Subproject.
run(${CMAKE_COMMAND} -S "${here}/subdirectory" -B "${WORK_DIR}/subdirectory" -G "${GENERATOR}"
    "-DLMIMAGE_SOURCE_DIR=${SOURCE_DIR}" -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build "${WORK_DIR}/subdirectory")
run("${WORK_DIR}/subdirectory/consumer")
if(EXISTS "${WORK_DIR}/subdirectory/lmimage/tests")
  message(FATAL_ERROR "a subproject build must not build lmimage's tests")
endif()
