# SPDX-License-Identifier: MIT
# What is installed, and where. The Debian packages (debian/) are made of it: component Runtime is the
# server, Policy what a managed terminal gets besides, Devel what a maker of a device library needs.
#
# The programs and what they look for in their own folder stay together, without a folder of the
# architecture in between. The server's path may not contain a text that app/singleinstance.cpp leaves
# out of its count: so no share/, whose name has "sh".
set(PROGRAM_INSTALL_DIR lib/rvowebsocketserver CACHE STRING "Where the programs and their files go")
set(_documents ${CMAKE_INSTALL_DATADIR}/doc/rvowebsocketserver)
set(_settings ${CMAKE_INSTALL_FULL_SYSCONFDIR}/rvowebsocketserver)
string(TOLOWER "${CMAKE_INSTALL_PREFIX}/${PROGRAM_INSTALL_DIR}" _lower) # qtcreator is, in any case
if("${CMAKE_INSTALL_PREFIX}/${PROGRAM_INSTALL_DIR}" MATCHES "sh|txt|sudo|grep" OR _lower MATCHES "qtcreator")
    message(FATAL_ERROR "The programs' folder must not contain \"${CMAKE_MATCH_0}\": "
        "a second server would not notice the first")
endif()

# Runtime: the server, and the companions that it starts by their scripts
set(_programs rvowebSocketServer imageencoder elecsign webbrowser)
if(NOT DEVICE_LIBRARIES)
    list(APPEND _programs devicehost barcodeworker fingerworker portabledocuments portablefaces
        portabletransfer portablevideo devicestub doccamera cardreader portabledoccamera
        portablecardreader)
endif()
install(TARGETS ${_programs}
    RUNTIME DESTINATION ${PROGRAM_INSTALL_DIR} COMPONENT Runtime
    LIBRARY DESTINATION ${PROGRAM_INSTALL_DIR} COMPONENT Runtime NAMELINK_SKIP)
install(PROGRAMS ${PROJECT_BINARY_DIR}/run-elecsign.sh ${PROJECT_BINARY_DIR}/run-webbrowser.sh
    DESTINATION ${PROGRAM_INSTALL_DIR} COMPONENT Runtime)
# The mock of the client comes with its npm package.
install(DIRECTORY webSite console client portable/samples/cards portable/samples/fingers
    DESTINATION ${PROGRAM_INSTALL_DIR} COMPONENT Runtime
    PATTERN "README*.md" EXCLUDE PATTERN mock EXCLUDE)
install(PROGRAMS scripts/fetch-face-models.sh
    DESTINATION ${PROGRAM_INSTALL_DIR}/scripts COMPONENT Runtime)
install(FILES scripts/common.sh DESTINATION ${PROGRAM_INSTALL_DIR}/scripts COMPONENT Runtime)
install(FILES portable/devices.ini.sample
    DESTINATION ${_settings} COMPONENT Runtime RENAME devices.ini)
install(FILES packaging/server.ini DESTINATION ${_settings} COMPONENT Runtime)

file(RELATIVE_PATH _to_program /${CMAKE_INSTALL_BINDIR}
    /${PROGRAM_INSTALL_DIR}/rvowebSocketServer)
install(CODE "
    set(bin \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR})
    file(MAKE_DIRECTORY \${bin})
    file(CREATE_LINK ${_to_program} \${bin}/rvowebSocketServer SYMBOLIC)" COMPONENT Runtime)
# For the terminal's technician
install(TARGETS devicectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)
install(FILES packaging/devicectl.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Runtime
    RENAME devicectl)
file(GLOB _man_pages CONFIGURE_DEPENDS docs/man/*.1)
install(FILES ${_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Runtime)
install(FILES docs/man/zh_CN/devicectl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/zh_CN/man1 COMPONENT Runtime)

# Runtime: how it starts with the desktop; the unit is the alternative, which is not enabled
set(PROGRAM ${CMAKE_INSTALL_PREFIX}/${PROGRAM_INSTALL_DIR}/rvowebSocketServer)
configure_file(packaging/rvowebsocketserver.desktop.in rvowebsocketserver.desktop @ONLY)
configure_file(packaging/rvowebsocketserver.service.in rvowebsocketserver.service @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/rvowebsocketserver.desktop
    DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/xdg/autostart COMPONENT Runtime)
install(FILES ${PROJECT_BINARY_DIR}/rvowebsocketserver.service
    DESTINATION lib/systemd/user COMPONENT Runtime)

# Runtime: documents
install(FILES README.md CHANGELOG.md DESTINATION ${_documents} COMPONENT Runtime)
install(DIRECTORY docs DESTINATION ${_documents} COMPONENT Runtime
    PATTERN man EXCLUDE PATTERN library EXCLUDE PATTERN "*.png" EXCLUDE)
# The screenshots would be a quarter of the package: without them, and without the lines that show them.
install(CODE "
    file(GLOB documents \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${_documents}/*.md
        \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${_documents}/docs/*.md)
    foreach(document IN LISTS documents)
        file(READ \${document} text)
        string(REGEX REPLACE \"!\\\\[[^\n]*\\\\.png\\\\)\n\n\" \"\" text \"\${text}\")
        file(WRITE \${document} \"\${text}\")
    endforeach()" COMPONENT Runtime)

# Policy
install(FILES docs/examples/access.ini DESTINATION ${_settings} COMPONENT Policy)
install(FILES packaging/70-rvowebsocketserver.rules DESTINATION lib/udev/rules.d COMPONENT Policy)
install(FILES packaging/browser-policy.json
    DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/chromium/policies/managed
    COMPONENT Policy RENAME rvowebsocketserver.json)

# Devel: find_package(DeviceLibrary)
include(CMakePackageConfigHelpers)
set(_config ${CMAKE_INSTALL_DATADIR}/cmake/DeviceLibrary)
set(INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/rvowebsocketserver)
install(DIRECTORY devicelib DESTINATION ${INCLUDE_DIR} COMPONENT Devel FILES_MATCHING PATTERN *.h)
configure_package_config_file(cmake/DeviceLibraryConfig.cmake.in DeviceLibraryConfig.cmake
    INSTALL_DESTINATION ${_config} PATH_VARS INCLUDE_DIR)
write_basic_package_version_file(DeviceLibraryConfigVersion.cmake
    COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${PROJECT_BINARY_DIR}/DeviceLibraryConfig.cmake
    ${PROJECT_BINARY_DIR}/DeviceLibraryConfigVersion.cmake
    DESTINATION ${_config} COMPONENT Devel)
install(DIRECTORY docs/examples/library
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/rvowebsocketserver-dev/examples COMPONENT Devel)
