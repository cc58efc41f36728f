# What the engine links; scripts/setup installs the packages that hold it.
find_package(Threads REQUIRED)
find_package(Boost 1.81 CONFIG REQUIRED COMPONENTS url)
find_package(CURL 7.87 REQUIRED)
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(simdjson REQUIRED)
find_package(SQLite3 3.35 REQUIRED)
find_package(PkgConfig REQUIRED)
# Of the program that decodes images.
pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips>=8.13)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp>=2.5)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/writer.h REQUIRED)

# Not RAPIDJSON_SSE2: with it, version 1.1 leaves some control characters of long texts unescaped.
add_library(orvane_rapidjson INTERFACE)
target_include_directories(orvane_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})

# Each serves one back end that a host may choose; without it that back end answers with an error.
pkg_check_modules(LIBSECRET IMPORTED_TARGET libsecret-1)
option(ORVANE_WITH_SECRET_SERVICE "Keep secrets in the desktop's Secret Service (libsecret)"
  ${LIBSECRET_FOUND})
find_path(OPENCV_INCLUDE_DIR opencv2/dnn.hpp PATH_SUFFIXES opencv4)
find_library(OPENCV_DNN_LIBRARY opencv_dnn)
find_library(OPENCV_IMGPROC_LIBRARY opencv_imgproc)
find_library(OPENCV_CORE_LIBRARY opencv_core)
if(OPENCV_INCLUDE_DIR AND OPENCV_DNN_LIBRARY AND OPENCV_IMGPROC_LIBRARY AND OPENCV_CORE_LIBRARY)
  set(OPENCV_FOUND ON)
else()
  set(OPENCV_FOUND OFF)
endif()
option(ORVANE_WITH_ONNX "Classify images by ONNX models (OpenCV's DNN module)" ${OPENCV_FOUND})
message(STATUS "Secret Service: ${ORVANE_WITH_SECRET_SERVICE}, ONNX models: ${ORVANE_WITH_ONNX}")

if(ORVANE_WITH_ONNX)
  add_library(orvane_opencv INTERFACE)
  target_include_directories(orvane_opencv SYSTEM INTERFACE ${OPENCV_INCLUDE_DIR})
  target_link_libraries(orvane_opencv INTERFACE
    ${OPENCV_DNN_LIBRARY} ${OPENCV_IMGPROC_LIBRARY} ${OPENCV_CORE_LIBRARY})
endif()

if(ORVANE_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ORVANE_BUILD_TESTS OR ORVANE_BUILD_FUZZERS)
  pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
endif()
if(ORVANE_BUILD_EXAMPLES)
  find_package(CLI11 REQUIRED)
endif()
if(ORVANE_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
