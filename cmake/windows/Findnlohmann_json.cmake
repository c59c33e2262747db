include(header_package)
header_package(nlohmann_json::nlohmann_json nlohmann)
set(nlohmann_json_FOUND ON)
