include(header_package)
header_package(CLI11::CLI11 CLI)
set(CLI11_FOUND ON)
