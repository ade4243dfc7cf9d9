# SPDX-License-Identifier: MIT
# The rules of the access policy: for the server, and for devicectl, which explains them.
add_library(access_rules STATIC
    access/argumentrules.cpp
    access/doorkeeper.cpp
    access/handshake.cpp
    access/origin.cpp
    access/pathrules.cpp
    access/policyfile.cpp
    access/policyparser.cpp
    access/realpath.cpp
    dispatch/arguments.cpp
    dispatch/commandfacts.cpp
    dispatch/failureresult.cpp)
target_include_directories(access_rules PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(access_rules PUBLIC base Qt5::Core Qt5::Network PRIVATE warnings)

# The server: a static library, which tests link too, and the program itself.
add_library(server_core STATIC
    access/accesscontrol.cpp
    access/auditevent.cpp
    access/auditlog.cpp
    access/devicefolders.cpp
    access/policywatch.cpp
    app/descriptorlimit.cpp
    app/singleinstance.cpp
    camera/capturecommands.cpp
    camera/captureimgthread.cpp
    camera/documentcommands.cpp
    camera/frameencoder.cpp
    camera/imageencoder.cpp
    camera/mat2base64.cpp
    camera/outputcommands.cpp
    camera/previewcommands.cpp
    camera/recordingcommands.cpp
    camera/scancommands.cpp
    camera/settingscommands.cpp
    camera/stoprecthread.cpp
    companionclients/companionclient.cpp
    companionclients/companioncommands.cpp
    companionclients/configini.cpp
    companionclients/signsouthinterface.cpp
    companionclients/webbrowser.cpp
    companionclients/webbrowsersouthinterface.cpp
    dispatch/base64.cpp
    dispatch/base64commands.cpp
    dispatch/clientqueue.cpp
    dispatch/deviceguard.cpp
    dispatch/loggedtext.cpp
    dispatch/messagerun.cpp
    files/filecommands.cpp
    identity/cardcommands.cpp
    identity/facecommands.cpp
    identity/facematchthread.cpp
    identity/fingerprintcommands.cpp
    identity/livingbodydetectthread.cpp
    identity/readidcardthread.cpp
    identity/requestthread.cpp
    log/earlywarnings.cpp
    log/longtext.cpp
    log/qlog.cpp
    log/qlogtonet.cpp
    log/refusallog.cpp
    log/trace.cpp
    status/statuscommands.cpp
    statussocket/statuslistener.cpp
    statussocket/statusreport.cpp
    transport/clientlink.cpp
    transport/framescanner.cpp
    transport/pagelistener.cpp
    transport/pagesocket.cpp
    transport/websocketservermanager.cpp
    upload/upload.cpp
    upload/uploadcommands.cpp
    upload/uploadpool.cpp)
target_include_directories(server_core PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(server_core
    PUBLIC access_rules base devicelib Qt5::Core Qt5::Gui Qt5::Network Qt5::WebSockets Qt5::Widgets
    PRIVATE companion_common warnings JPEG::JPEG Threads::Threads ${CMAKE_DL_LIBS})

add_library(imageencoder MODULE camera/imageencodermodule.cpp)
target_link_libraries(imageencoder PRIVATE warnings OpenCV::core OpenCV::imgcodecs)

# The log has the date of the build, so all that the program is linked from renews it.
set(_build_date ${PROJECT_BINARY_DIR}/builddate.cpp)
add_custom_command(OUTPUT ${_build_date}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${_build_date} -P ${PROJECT_SOURCE_DIR}/cmake/builddate.cmake
    DEPENDS server_core app/main.cpp app/builddate.h cmake/builddate.cmake
    VERBATIM)
set_source_files_properties(${_build_date} PROPERTIES SKIP_AUTOGEN ON)
set_source_files_properties(app/main.cpp PROPERTIES
    COMPILE_DEFINITIONS SERVER_VERSION="${PROJECT_VERSION}")
add_executable(rvowebSocketServer app/main.cpp app/icons.qrc ${_build_date})
target_link_libraries(rvowebSocketServer PRIVATE server_core warnings)
add_dependencies(rvowebSocketServer imageencoder)
if(DEVICE_LIBRARIES)
    target_link_libraries(rvowebSocketServer PRIVATE ${DEVICE_LIBRARIES})
else()
    target_link_libraries(rvowebSocketServer PRIVATE doccamera cardreader)
    add_dependencies(rvowebSocketServer devicehost portabledoccamera portablecardreader)
endif()
# Libraries next to the program are found; LD_LIBRARY_PATH takes precedence (DT_RUNPATH). CMake pads a
# build's own path, which leaves an empty entry: the current folder.
set_target_properties(rvowebSocketServer PROPERTIES BUILD_RPATH "\$ORIGIN" INSTALL_RPATH "\$ORIGIN")
if(NOT DEVICE_LIBRARIES)
    set_target_properties(rvowebSocketServer PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
endif()
target_link_options(rvowebSocketServer PRIVATE -Wl,--enable-new-dtags)
