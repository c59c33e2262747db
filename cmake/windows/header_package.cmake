# A package of Debian for Linux whose headers suit every system. They are reached through a folder of
# their own: /usr/include would bring the headers of Linux along.
function(header_package target folder)
  if(TARGET ${target})
    return()
  endif()
  find_path(${folder}_parent ${folder} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(include ${CMAKE_BINARY_DIR}/packages/${folder}/include)
  file(MAKE_DIRECTORY ${include})
  file(CREATE_LINK ${${folder}_parent}/${folder} ${include}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} SYSTEM INTERFACE ${include})
endfunction()
