# SPDX-License-Identifier: MIT
# Finds the OpenCV 4 modules we use individually, as OpenCV::<module>.
#
# OpenCV's own CMake package is part of the Debian package of all modules (a few hundred MB). The
# packages of single modules have only headers and libraries, which is all we need.
include(FindPackageHandleStandardArgs)

set(_modules core imgproc imgcodecs dnn)
find_path(OpenCVModules_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(_required OpenCVModules_INCLUDE_DIR)
foreach(_module IN LISTS _modules)
    find_library(OpenCVModules_${_module}_LIBRARY opencv_${_module})
    list(APPEND _required OpenCVModules_${_module}_LIBRARY)
endforeach()
if(OpenCVModules_INCLUDE_DIR)
    file(STRINGS ${OpenCVModules_INCLUDE_DIR}/opencv2/core/version.hpp _line
         REGEX "#define CV_VERSION_MAJOR")
    string(REGEX MATCH "[0-9]+" OpenCVModules_VERSION "${_line}")
endif()
find_package_handle_standard_args(OpenCVModules
    REQUIRED_VARS ${_required} VERSION_VAR OpenCVModules_VERSION)

if(OpenCVModules_FOUND)
    foreach(_module IN LISTS _modules)
        if(NOT TARGET OpenCV::${_module})
            add_library(OpenCV::${_module} UNKNOWN IMPORTED)
            set_target_properties(OpenCV::${_module} PROPERTIES
                IMPORTED_LOCATION ${OpenCVModules_${_module}_LIBRARY}
                INTERFACE_INCLUDE_DIRECTORIES ${OpenCVModules_INCLUDE_DIR})
        endif()
    endforeach()
endif()
