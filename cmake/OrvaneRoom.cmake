# orvane_add_room(NAME HEADERS ... SOURCES ... TESTS ... LINK ... PRIVATE_LINK ...)
#
# A folder of orvane/ as a static library `orvane::NAME` with its tests beside it. HEADERS are
# public: installed, and compiled alone by the target `all_verify_interface_header_sets`. Headers of
# the folder that are not listed are for other rooms of the engine; those in internal/ for this one.
# LINK is what the folder's headers need; PRIVATE_LINK is used by sources only.
function(orvane_add_room name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "HEADERS;SOURCES;TESTS;LINK;PRIVATE_LINK")
  add_library(orvane_${name} STATIC ${ARG_SOURCES})
  add_library(orvane::${name} ALIAS orvane_${name})
  target_sources(orvane_${name} PUBLIC FILE_SET HEADERS
    BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARG_HEADERS})
  target_compile_features(orvane_${name} PUBLIC cxx_std_23)
  target_link_libraries(orvane_${name}
    PUBLIC ${ARG_LINK}
    PRIVATE $<BUILD_INTERFACE:orvane_warnings> ${ARG_PRIVATE_LINK})
  set_target_properties(orvane_${name} PROPERTIES
    EXPORT_NAME ${name}
    POSITION_INDEPENDENT_CODE ON
    VERIFY_INTERFACE_HEADER_SETS ON)
  set_property(GLOBAL APPEND PROPERTY ORVANE_ROOMS orvane_${name})
  set_property(TARGET orvane_${name} PROPERTY ORVANE_LINKS ${ARG_LINK} ${ARG_PRIVATE_LINK})
  if(ORVANE_INSTALL)
    install(TARGETS orvane_${name} EXPORT orvaneTargets
      ARCHIVE COMPONENT development
      FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  endif()
  if(ORVANE_BUILD_TESTS AND ARG_TESTS)
    orvane_add_test(${name}_tests SOURCES ${ARG_TESTS} LINK orvane::${name} ${ARG_PRIVATE_LINK})
  endif()
endfunction()

# Helpers lie in one folder: programs and modules that the library starts or loads when needed.
set(ORVANE_BUILT_HELPERS ${PROJECT_BINARY_DIR}/helpers)
set(ORVANE_INSTALLED_HELPERS ${CMAKE_INSTALL_LIBEXECDIR}/orvane)

# orvane_helper(TARGET OF ROOM)
#
# Makes the target a helper, built and installed with the room that needs it.
function(orvane_helper target of room)
  set_target_properties(${target} PROPERTIES
    PREFIX "" RUNTIME_OUTPUT_DIRECTORY ${ORVANE_BUILT_HELPERS}
    LIBRARY_OUTPUT_DIRECTORY ${ORVANE_BUILT_HELPERS})
  add_dependencies(orvane_${room} ${target})
  if(ORVANE_INSTALL)
    install(TARGETS ${target} DESTINATION ${ORVANE_INSTALLED_HELPERS} COMPONENT runtime)
  endif()
endfunction()

# orvane_add_module(TARGET OF ROOM SOURCES ... LINK ...)
#
# A helper that is loaded: what needs a library that most hosts do not. It shows one symbol.
function(orvane_add_module target of room)
  cmake_parse_arguments(PARSE_ARGV 3 ARG "" "" "SOURCES;LINK")
  add_library(${target} MODULE ${ARG_SOURCES})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE ${ARG_LINK} orvane_warnings)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  orvane_helper(${target} OF ${room})
endfunction()

# orvane_add_test(NAME SOURCES ... LINK ... [TIMEOUT seconds] [LABELS ...] [PROPERTIES ...])
#
# A GoogleTest program, each of whose cases ctest runs in a process of its own.
function(orvane_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "TIMEOUT" "SOURCES;LINK;LABELS;PROPERTIES")
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} orvane_testing orvane_warnings)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${name};${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT} ${ARG_PROPERTIES})
endfunction()
