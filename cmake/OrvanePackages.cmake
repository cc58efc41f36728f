# Debian packages, one for each component: `cpack` in a build folder of the preset `package`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "photo backup engine")
set(CPACK_PACKAGE_CONTACT "OrvaneEngine developers <developers@orvane.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime development backup)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(library "liborvane${PROJECT_VERSION_MAJOR}")
set(this_version "(= ${PROJECT_VERSION})")
set(boost_version ${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ca-certificates)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library.
Uploads to S3 object stores and goes on with what was interrupted, keeps the
books of it, tags photos on the device and shares the tags between devices.
.
This package has the shared library and the programs and modules it starts or
loads: the worker that decodes images, ONNX models, the Secret Service.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborvane-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(needed "${library} ${this_version}" libboost${boost_version}-dev libboost-url${boost_version}-dev
  libcurl4-openssl-dev libsimdjson-dev libsqlite3-dev libssl-dev)
list(JOIN needed ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers and static libraries.
Uploads to S3 object stores and goes on with what was interrupted, keeps the
books of it, tags photos on the device and shares the tags between devices.
.
This package has the headers, each room of the engine as a static library, and
the files by which CMake and pkg-config find them.")

set(CPACK_DEBIAN_BACKUP_PACKAGE_NAME orvane-backup)
set(CPACK_DEBIAN_BACKUP_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_BACKUP_PACKAGE_DEPENDS "${library} ${this_version}")
set(CPACK_COMPONENT_BACKUP_DESCRIPTION "The example host.
Uploads what is new or changed, goes on where an interrupted run has stopped,
brings files back, finds photos by what they show.
.
It is the example host of the engine liborvane.")

# What every package says about itself.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${PROJECT_BINARY_DIR}/changelog @ONLY)
foreach(file changelog orvane-backup.1)
  set(from ${PROJECT_SOURCE_DIR}/packaging/${file})
  if(file STREQUAL changelog)
    set(from ${PROJECT_BINARY_DIR}/changelog)
  endif()
  execute_process(COMMAND gzip --best --no-name --stdout ${from}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/${file}.gz COMMAND_ERROR_IS_FATAL ANY)
endforeach()
set(package_of_runtime ${library})
set(package_of_development liborvane-dev)
set(package_of_backup orvane-backup)
foreach(component ${CPACK_COMPONENTS_ALL})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package_of_${component}} COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/orvane-backup.1.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT backup)
include(CPack)
