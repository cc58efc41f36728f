# What the engine links; scripts/setup installs the packages that hold it.
find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS url)
find_package(CURL 7.87 REQUIRED)
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(simdjson REQUIRED)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/writer.h REQUIRED)

add_library(orvane_rapidjson INTERFACE)
target_include_directories(orvane_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  # Texts are then copied by 16 bytes up to the next character that needs an escape.
  target_compile_definitions(orvane_rapidjson INTERFACE RAPIDJSON_SSE2)
endif()

if(ORVANE_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ORVANE_BUILD_EXAMPLES)
  find_package(CLI11 REQUIRED)
endif()
if(ORVANE_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
