# Packages that Debian has for Linux only, as far as their headers and sources suit every system. They
# are reached through a folder of their own: /usr/include would bring the headers of Linux along.

function(add_header_package target folder)
  find_path(${folder}_parent ${folder} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(include ${CMAKE_BINARY_DIR}/packages/${folder}/include)
  file(MAKE_DIRECTORY ${include})
  file(CREATE_LINK ${${folder}_parent}/${folder} ${include}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} SYSTEM INTERFACE ${include})
endfunction()

add_header_package(CLI11::CLI11 CLI)
add_header_package(nlohmann_json::nlohmann_json nlohmann)

if(BUILD_TESTING)
  find_path(googletest_source googletest/src/gtest-all.cc PATHS /usr/src/googletest
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(googletest_source ${googletest_source}/googletest)
  add_library(gtest STATIC ${googletest_source}/src/gtest-all.cc)
  add_library(gtest_main STATIC ${googletest_source}/src/gtest_main.cc)
  target_include_directories(gtest SYSTEM PUBLIC ${googletest_source}/include
    PRIVATE ${googletest_source})
  target_compile_options(gtest PRIVATE -w)
  target_link_libraries(gtest_main PUBLIC gtest)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
endif()
