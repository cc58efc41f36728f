# The real object store that tests use: one for each ctest run that holds a test in need of it,
# started before the first of them and stopped after the last, whatever their results.
set(ORVANE_OBJECT_STORE_FIXTURE ${PROJECT_SOURCE_DIR}/tests/support/object-store/fixture)
set(ORVANE_OBJECT_STORE_LINK ${PROJECT_BINARY_DIR}/object-store)

add_test(NAME object-store.start
  COMMAND ${ORVANE_OBJECT_STORE_FIXTURE} start ${ORVANE_OBJECT_STORE_LINK})
add_test(NAME object-store.stop
  COMMAND ${ORVANE_OBJECT_STORE_FIXTURE} stop ${ORVANE_OBJECT_STORE_LINK})
set_tests_properties(object-store.start PROPERTIES FIXTURES_SETUP object_store TIMEOUT 240)
set_tests_properties(object-store.stop PROPERTIES FIXTURES_CLEANUP object_store TIMEOUT 120)

# orvane_add_store_test(NAME SOURCES ... LINK ... [TIMEOUT seconds])
#
# As orvane_add_test; the cases find the store through orvane::testing::ObjectStore.
function(orvane_add_store_test name)
  orvane_add_test(${name} ${ARGN} PROPERTIES
    FIXTURES_REQUIRED object_store
    ENVIRONMENT ORVANE_OBJECT_STORE=${ORVANE_OBJECT_STORE_LINK}/env)
endfunction()
