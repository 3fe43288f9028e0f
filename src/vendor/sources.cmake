# The two parameter tables are generated from their listings, so that each row
# is written once.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(vendor_dir ${CMAKE_CURRENT_BINARY_DIR}/vendor)
file(MAKE_DIRECTORY ${vendor_dir})
foreach(entry radio_vendor_cmds:505 vap_vendor_cmds:893)
  string(REPLACE ":" ";" entry ${entry})
  list(GET entry 0 table)
  list(GET entry 1 rows)
  add_custom_command(
    OUTPUT ${vendor_dir}/${table}.cpp
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/gen-vendor-table.py
            ${CMAKE_CURRENT_SOURCE_DIR}/vendor/${table}.list ${vendor_dir}/${table}.cpp
            ${table} ${rows}
    DEPENDS ${PROJECT_SOURCE_DIR}/tools/gen-vendor-table.py
            ${CMAKE_CURRENT_SOURCE_DIR}/vendor/${table}.list
    COMMENT "Generating vendor parameter table ${table}")
  list(APPEND ny80211_sources ${vendor_dir}/${table}.cpp)
endforeach()
list(APPEND ny80211_sources vendor/VendorCmd.cpp)
