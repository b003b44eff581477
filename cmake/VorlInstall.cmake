# Installation (cmake --install build [--prefix DIR] [--component NAME]):
#   library      libvorl.so.1 and its versioned file
#   development  headers, libvorl.so link, libvorl.a, the CMake package
#                (find_package(vorl CONFIG): vorl::vorl, vorl::vorl_static)
#                and vorl.pc for pkg-config
#   tool         the vorl tool and its man page (when the tool is built)
#   doc          README.md and docs/*.md
# Needs nothing beyond CMake; help2man, when present, makes the man page.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The version macros of vorl.h follow the project's version.
file(STRINGS ${PROJECT_SOURCE_DIR}/include/vorl.h vorl_version_lines REGEX "^#define VORL_VERSION_[A-Z]+ ")
foreach(part IN ITEMS MAJOR MINOR PATCH)
  string(REGEX MATCH "VORL_VERSION_${part} ([0-9]+)" _ "${vorl_version_lines}")
  if(NOT "${CMAKE_MATCH_1}" STREQUAL "${PROJECT_VERSION_${part}}")
    message(FATAL_ERROR "include/vorl.h: VORL_VERSION_${part} is \"${CMAKE_MATCH_1}\" but the project's "
                        "version is ${PROJECT_VERSION}; change both together")
  endif()
endforeach()

option(VORL_INSTALL "Generate the install rules" ${VORL_TOP_LEVEL})
if(NOT VORL_INSTALL)
  return()
endif()

# ---------------------------------------------------------------- library
set_target_properties(vorl_static PROPERTIES EXPORT_NAME vorl_static)
install(TARGETS vorl vorl_static EXPORT vorlTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")

# CMake package: vorlConfig.cmake, its version file, the exported targets.
set(vorl_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorl)
install(EXPORT vorlTargets NAMESPACE vorl:: DESTINATION ${vorl_cmake_dir} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vorlConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vorlConfig.cmake INSTALL_DESTINATION ${vorl_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vorlConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vorlConfig.cmake ${PROJECT_BINARY_DIR}/vorlConfigVersion.cmake
  DESTINATION ${vorl_cmake_dir} COMPONENT development)

# pkg-config: paths relative to the .pc file, so that an installed tree can
# be moved (and cmake --install --prefix works without reconfiguring).
set(vorl_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(VORL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(VORL_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(VORL_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH vorl_pc_up /root/${vorl_pc_dir} /root)
  string(REGEX REPLACE "/$" "" vorl_pc_up "${vorl_pc_up}")
  set(VORL_PC_PREFIX "\${pcfiledir}/${vorl_pc_up}")
  set(VORL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(VORL_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/vorl.pc.in ${PROJECT_BINARY_DIR}/vorl.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vorl.pc DESTINATION ${vorl_pc_dir} COMPONENT development)

# ------------------------------------------------------------ tool, docs
if(TARGET vorl_tool)
  install(TARGETS vorl_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  # Its video module, where the tool looks for it (tools/vorl/CMakeLists.txt).
  install(TARGETS vorl_video LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vorl COMPONENT tool)
  find_program(VORL_HELP2MAN help2man)
  if(VORL_HELP2MAN AND NOT CMAKE_CROSSCOMPILING)
    set(vorl_man ${PROJECT_BINARY_DIR}/vorl.1)
    add_custom_command(OUTPUT ${vorl_man}
      COMMAND ${CMAKE_COMMAND} -DHELP2MAN=${VORL_HELP2MAN} -DTOOL=$<TARGET_FILE:vorl_tool> -DOUT=${vorl_man}
              -DDOCDIR=${CMAKE_INSTALL_DOCDIR} -P ${CMAKE_CURRENT_LIST_DIR}/vorl_man_page.cmake
      DEPENDS vorl_tool ${CMAKE_CURRENT_LIST_DIR}/vorl_man_page.cmake
      COMMENT "Writing the vorl man page from its help texts"
      VERBATIM)
    add_custom_target(vorl_man_page ALL DEPENDS ${vorl_man})
    install(FILES ${vorl_man} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  else()
    message(STATUS "help2man not found (or cross-compiling): the vorl man page is not built")
  endif()
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
  FILES_MATCHING PATTERN "*.md")

if(VORL_BUILD_TESTS AND NOT CMAKE_CROSSCOMPILING)
  add_subdirectory(tests/install)
endif()
