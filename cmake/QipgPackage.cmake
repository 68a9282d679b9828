# Installing, exporting and packaging the libraries and the tools.
#
# A library component is one call of qipg_package_library(<component> <target> ...). It gives:
#   - install components <component> (the shared library) and <component>-dev (headers, the
#     linker name, the CMake targets file and the pkg-config file cmake/<target>.pc.in);
#   - the CMake package component: find_package(QuandrelIPG COMPONENTS <component>) and the
#     imported target QuandrelIPG::<target>;
#   - Debian packages lib<target><SOVERSION> and lib<target>-dev.
# Options: SUMMARY is the one-line description of its packages; HEADERS names the files of
# include/qipg/ that belong to this component (the rest belong to "core"); DEB_DEV_DEPENDS the
# Debian development packages its -dev package depends on. A new library (say the Qt window) is
#   qipg_package_library(qt qipg-qt SUMMARY "..." HEADERS QtPaymentWindow.h
#     DEB_DEV_DEPENDS qt6-webengine-dev)
# beside the others in CMakeLists.txt, plus its cmake/qipg-qt.pc.in (copy cmake/qipg-gtk.pc.in).
# qipg_package_program(<target>) installs a program into the "tools" component (qipg-tools).
# qipg_package_docs(<file>... EXAMPLES <dir>) installs the merchant's guides and the example
# programs into the documentation directory, in the "tools" component too.
# qipg_package_finish() writes the package configuration and sets up CPack; call it last.

set(QIPG_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuandrelIPG)
set(QIPG_PKGCONFIG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# pkg-config files find the prefix from where they stand, so a tree can be moved. Installed
# into /usr (the Debian packages) they name it instead: pkg-config leaves out -I/usr/include
# and -L/usr/lib only when it can see that they are the system's, and an -I of a system
# directory breaks the compiler's own #include_next chain.
file(RELATIVE_PATH QIPG_PC_PREFIX_FROM_PCDIR
  /prefix/${QIPG_PKGCONFIG_INSTALL_DIR} /prefix)
string(REGEX REPLACE "/$" "" QIPG_PC_PREFIX_FROM_PCDIR "${QIPG_PC_PREFIX_FROM_PCDIR}")
set(QIPG_PC_RELOCATABLE_PREFIX "\${pcfiledir}/${QIPG_PC_PREFIX_FROM_PCDIR}")

# Installed programs look for the libraries beside them in ../lib; the libraries find each
# other in their own directory.
file(RELATIVE_PATH QIPG_LIB_FROM_BIN
  /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})

function(qipg_package_library component target)
  if(NOT TARGET ${target})
    return()
  endif()
  cmake_parse_arguments(ARG "" "SUMMARY" "HEADERS;DEB_DEV_DEPENDS" ${ARGN})
  target_compile_features(${target} PUBLIC cxx_std_20)
  if(NOT component STREQUAL "core")
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")  # finds libqipg
  endif()
  install(TARGETS ${target} EXPORT QuandrelIPG-${component}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      COMPONENT ${component} NAMELINK_COMPONENT ${component}-dev)
  install(EXPORT QuandrelIPG-${component} NAMESPACE QuandrelIPG::
    FILE QuandrelIPG-${component}-targets.cmake
    DESTINATION ${QIPG_CMAKE_INSTALL_DIR} COMPONENT ${component}-dev)

  # The library is shared only and its headers need no other package's: the .pc files name no
  # other module, so their flags bring no other package's include directories.
  set(QIPG_PC_PREFIX "${QIPG_PC_RELOCATABLE_PREFIX}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${target}.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/${target}.pc @ONLY)
  set(QIPG_PC_PREFIX /usr)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${target}.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/usr/${target}.pc @ONLY)
  install(CODE "
    set(pc \"${PROJECT_BINARY_DIR}/pkgconfig/${target}.pc\")
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
      set(pc \"${PROJECT_BINARY_DIR}/pkgconfig/usr/${target}.pc\")
    endif()
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${QIPG_PKGCONFIG_INSTALL_DIR}\"
      TYPE FILE FILES \"\${pc}\")" COMPONENT ${component}-dev)

  foreach(header ${ARG_HEADERS})
    install(FILES ${PROJECT_SOURCE_DIR}/include/qipg/${header}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qipg COMPONENT ${component}-dev)
    set_property(GLOBAL APPEND PROPERTY QIPG_COMPONENT_HEADERS ${header})
  endforeach()

  get_target_property(soversion ${target} SOVERSION)
  set_property(GLOBAL APPEND PROPERTY QIPG_LIBRARY_COMPONENTS ${component})
  set_property(GLOBAL PROPERTY QIPG_${component}_TARGET ${target})
  set_property(GLOBAL PROPERTY QIPG_${component}_SOVERSION ${soversion})
  set_property(GLOBAL PROPERTY QIPG_${component}_DEB_DEV_DEPENDS "${ARG_DEB_DEV_DEPENDS}")
  set_property(GLOBAL PROPERTY QIPG_${component}_SUMMARY "${ARG_SUMMARY}")
endfunction()

function(qipg_package_program target)
  if(NOT TARGET ${target})
    return()
  endif()
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${QIPG_LIB_FROM_BIN}")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endfunction()

# The guides and examples go with the tools, whose help points at them: one directory,
# share/doc/QuandrelIPG, in an install tree and in the Debian package alike.
function(qipg_package_docs)
  cmake_parse_arguments(ARG "" "EXAMPLES" "" ${ARGN})
  list(TRANSFORM ARG_UNPARSED_ARGUMENTS PREPEND ${PROJECT_SOURCE_DIR}/)
  install(FILES ${ARG_UNPARSED_ARGUMENTS} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${ARG_EXAMPLES}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    COMPONENT tools FILES_MATCHING PATTERN "*.cpp")
endfunction()

function(qipg_package_finish)
  get_property(components GLOBAL PROPERTY QIPG_LIBRARY_COMPONENTS)
  get_property(componentHeaders GLOBAL PROPERTY QIPG_COMPONENT_HEADERS)

  # Every header not claimed by another component is core's, the generated ones included.
  set(excludes)
  foreach(header ${componentHeaders})
    list(APPEND excludes PATTERN ${header} EXCLUDE)
  endforeach()
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qipg ${QIPG_GENERATED_INCLUDE}/qipg
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT core-dev ${excludes})

  set(QIPG_BUILT_COMPONENTS "${components}")
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QuandrelIPGConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QuandrelIPGConfig.cmake
    INSTALL_DESTINATION ${QIPG_CMAKE_INSTALL_DIR})
  # A minor release adds and never breaks; a new major version is a new SONAME.
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuandrelIPGConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/QuandrelIPGConfig.cmake
    ${PROJECT_BINARY_DIR}/QuandrelIPGConfigVersion.cmake
    DESTINATION ${QIPG_CMAKE_INSTALL_DIR} COMPONENT core-dev)
  # For plain installs; each Debian package carries its own copyright file instead.
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT license)

  qipg_setup_cpack("${components}")
endfunction()

# The copyright file and the changelog every Debian package carries in /usr/share/doc/<package>;
# installed only when CPack asks for the component, never by a plain `cmake --install`.
function(qipg_deb_docs component package)
  set(dir ${PROJECT_BINARY_DIR}/deb-docs)
  if(NOT EXISTS ${dir}/copyright)
    file(READ ${PROJECT_SOURCE_DIR}/LICENSE license)
    string(REGEX REPLACE "^MIT License\n\n" "" license "${license}")
    string(REGEX REPLACE "\n\n" "\n.\n" license "${license}")
    string(REGEX REPLACE "\n$" "" license "${license}")
    string(REPLACE "\n" "\n " license " ${license}")
    file(WRITE ${dir}/copyright
      "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
      "Upstream-Name: Quandrel IPG for C++\n\n"
      "Files: *\nCopyright: 2026 Quandrel IPG for C++ contributors\nLicense: Expat\n${license}\n")
    string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
    file(WRITE ${dir}/changelog
      "qipg (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
      "  * Release ${PROJECT_VERSION}; the changes are in CHANGELOG.md of the sources.\n\n"
      " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    execute_process(COMMAND gzip -n -9 -f ${dir}/changelog)
    file(WRITE ${dir}/triggers "activate-noawait ldconfig\n")
  endif()
  install(FILES ${dir}/copyright ${dir}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

# Debian packages, one per install component; `cpack` in the build tree (make package).
macro(qipg_setup_cpack components)
  set(CPACK_PACKAGE_NAME qipg)
  set(CPACK_PACKAGE_VENDOR "Quandrel IPG for C++ contributors")
  set(CPACK_PACKAGE_CONTACT "Quandrel IPG for C++ contributors <qipg@quandrel.example>")
  set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
  set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")  # minor releases only add
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
  set(CPACK_STRIP_FILES ON)

  set(CPACK_COMPONENTS_ALL tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qipg-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Quandrel IPG command-line tool and sandbox gateway\nipg seals and opens message envelopes, pays, and asks a gateway for status,\ncancellations and refunds; ipg-sandbox is a local, stateful stand-in for the\ngateway for development and tests. No real money moves through the sandbox.")
  qipg_deb_docs(tools qipg-tools)
  foreach(component ${components})
    get_property(target GLOBAL PROPERTY QIPG_${component}_TARGET)
    get_property(soversion GLOBAL PROPERTY QIPG_${component}_SOVERSION)
    get_property(devDepends GLOBAL PROPERTY QIPG_${component}_DEB_DEV_DEPENDS)
    get_property(summary GLOBAL PROPERTY QIPG_${component}_SUMMARY)
    string(TOUPPER ${component} upper)
    list(APPEND CPACK_COMPONENTS_ALL ${component} ${component}-dev)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME lib${target}${soversion})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/deb-docs/triggers)
    set(CPACK_DEBIAN_${upper}-DEV_PACKAGE_NAME lib${target}-dev)
    set(CPACK_DEBIAN_${upper}-DEV_PACKAGE_SECTION libdevel)
    string(REPLACE ";" ", " CPACK_DEBIAN_${upper}-DEV_PACKAGE_DEPENDS "${devDepends}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION
      "${summary}\nQuandrel IPG for C++: take card and bank payments through the Quandrel\nInternet Payment Gateway. This package holds the shared library lib${target}.")
    set(CPACK_COMPONENT_${upper}-DEV_DESCRIPTION
      "${summary} (development files)\nQuandrel IPG for C++: take card and bank payments through the Quandrel\nInternet Payment Gateway. This package holds the headers, the CMake package\nQuandrelIPG (component ${component}) and the pkg-config file ${target}.pc.")
    qipg_deb_docs(${component} lib${target}${soversion})
    qipg_deb_docs(${component}-dev lib${target}-dev)
  endforeach()
  set(CPACK_COMPONENT_TOOLS_DEPENDS ${components})
  foreach(component ${components})
    string(TOUPPER ${component} upper)
    set(CPACK_COMPONENT_${upper}-DEV_DEPENDS ${component})
    if(NOT component STREQUAL "core")
      list(APPEND CPACK_COMPONENT_${upper}-DEV_DEPENDS core-dev)
      set(CPACK_COMPONENT_${upper}_DEPENDS core)
    endif()
  endforeach()
  include(CPack)
endmacro()
