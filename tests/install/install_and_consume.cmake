# Installs the build into a scratch prefix and uses the installation the two
# ways an outside project would: a C program compiled with pkg-config's flags
# and a CMake project with find_package(vorl CONFIG); both link the shared
# library and run against the installed copy. Also checks the SONAME, the
# tool's --version and the man page when they are installed.
# -DBUILD=<build folder> -DPREFIX=<scratch> -DSOURCE_DIR=<tests/install>
# -DCONSUMER=<consumer.c> -DGENERATOR=... -DCC=... "-DCFLAGS=..." "-DLDFLAGS=..."
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(status)
    message(FATAL_ERROR "${what} failed (${status}):\n${out}${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${PREFIX})
run("cmake --install" ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}/usr)
set(root ${PREFIX}/usr)
set(run_env ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${root}/lib)

run("reading the library's SONAME" objdump -p ${root}/lib/libvorl.so)
if(NOT out MATCHES "SONAME +libvorl\\.so\\.1\n")
  message(FATAL_ERROR "libvorl.so has no SONAME libvorl.so.1")
endif()
foreach(f include/vorl.h lib/libvorl.a lib/cmake/vorl/vorlConfigVersion.cmake share/doc/libvorl/README.md)
  if(NOT EXISTS ${root}/${f})
    message(FATAL_ERROR "${f} was not installed")
  endif()
endforeach()

# pkg-config
run("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${root}/lib/pkgconfig pkg-config --cflags --libs vorl)
separate_arguments(pc_flags UNIX_COMMAND "${out}")
separate_arguments(cflags UNIX_COMMAND "${CFLAGS}")
separate_arguments(ldflags UNIX_COMMAND "${LDFLAGS}")
run("compiling with pkg-config's flags" ${CC} ${cflags} ${CONSUMER} ${pc_flags} ${ldflags} -o ${PREFIX}/consumer_pc)
run("the pkg-config consumer" ${run_env} ${PREFIX}/consumer_pc)

# find_package(vorl CONFIG); a version of another major is refused.
set(configure ${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -G ${GENERATOR} -DCMAKE_C_COMPILER=${CC}
    "-DCMAKE_C_FLAGS=${CFLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LDFLAGS}" -DCMAKE_PREFIX_PATH=${root}
    -DCONSUMER_SOURCE=${CONSUMER})
run("configuring the find_package consumer" ${configure} -B ${PREFIX}/cmake_consumer)
run("building the find_package consumer" ${CMAKE_COMMAND} --build ${PREFIX}/cmake_consumer)
run("the find_package consumer" ${run_env} ${PREFIX}/cmake_consumer/consumer)
execute_process(COMMAND ${configure} -B ${PREFIX}/cmake_major2 -DVORL_WANTED=2.0
                RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
if(NOT status)
  message(FATAL_ERROR "find_package(vorl 2.0) accepted version 1")
endif()

# The tool and its man page, when built.
if(EXISTS ${root}/bin/vorl)
  run("vorl --version" ${root}/bin/vorl --version)
  if(NOT out MATCHES "^vorl [0-9]+\\.[0-9]+\\.[0-9]+ \\(libvorl [0-9]+\\.[0-9]+\\.[0-9]+\\)\n$")
    message(FATAL_ERROR "unexpected vorl --version output: ${out}")
  endif()
  # Video files go through a module the installed tool must find: a missing
  # clip then is a missing file, not a missing module.
  execute_process(COMMAND ${root}/bin/vorl process ${PREFIX}/missing.mp4 ${PREFIX}/out.mp4
                  RESULT_VARIABLE status ERROR_VARIABLE err)
  if(NOT status EQUAL 2 OR NOT err MATCHES "missing.mp4: no such file")
    message(FATAL_ERROR "the installed vorl did not reach its video module: ${err}")
  endif()
  find_program(MAN man)
  if(MAN AND EXISTS ${root}/share/man/man1/vorl.1)
    run("man -l vorl.1" ${CMAKE_COMMAND} -E env MANWIDTH=80 ${MAN} -l ${root}/share/man/man1/vorl.1)
    if(NOT out MATCHES "vorl process")
      message(FATAL_ERROR "the man page does not describe vorl process:\n${out}")
    endif()
  endif()
endif()
file(REMOVE_RECURSE ${PREFIX})
