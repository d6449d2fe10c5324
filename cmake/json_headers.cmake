# nlohmann's JSON, header-only, from the machine's package; for cross builds copied for the reason told in
# fmt.cmake.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(nlohmann_json REQUIRED)
    add_library(json_headers ALIAS nlohmann_json::nlohmann_json)
    return()
endif()
find_path(JSON_INCLUDE_DIR nlohmann/json.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(COPY "${JSON_INCLUDE_DIR}/nlohmann" DESTINATION "${CMAKE_BINARY_DIR}/third_party_json")
add_library(json_headers INTERFACE)
target_include_directories(json_headers SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/third_party_json")
