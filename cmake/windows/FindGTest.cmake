# Built from the sources that Debian's package googletest has.
if(NOT TARGET GTest::gtest)
  find_path(googletest_source googletest/src/gtest-all.cc PATHS /usr/src/googletest
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(googletest ${googletest_source}/googletest)
  add_library(gtest STATIC ${googletest}/src/gtest-all.cc)
  add_library(gtest_main STATIC ${googletest}/src/gtest_main.cc)
  target_include_directories(gtest SYSTEM PUBLIC ${googletest}/include PRIVATE ${googletest})
  target_compile_options(gtest PRIVATE -w)
  target_link_libraries(gtest_main PUBLIC gtest)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
endif()
set(GTest_FOUND ON)
