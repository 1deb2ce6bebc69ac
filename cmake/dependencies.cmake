# Libraries of headers only, for the host as well as for the targets of cross builds: there a host
# package is used through a folder of its own, because its include folder holds the host's system
# headers as well.
function(qz_find_headers package target file)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(${package} REQUIRED GLOBAL)
    return()
  endif()
  find_path(${package}_HOST_FOLDER ${file} REQUIRED NO_CMAKE_FIND_ROOT_PATH PATHS /usr/include)
  get_filename_component(top ${file} DIRECTORY)
  set(folder ${PROJECT_BINARY_DIR}/headers)
  file(MAKE_DIRECTORY ${folder})
  file(CREATE_LINK ${${package}_HOST_FOLDER}/${top} ${folder}/${top} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} SYSTEM INTERFACE ${folder})
endfunction()

if(QZ_BUILD_VIRTUAL_LIBRARY OR QZ_BUILD_TOOLS)
  qz_find_headers(nlohmann_json nlohmann_json::nlohmann_json nlohmann/json.hpp)
endif()
if(QZ_BUILD_TOOLS)
  qz_find_headers(CLI11 CLI11::CLI11 CLI/CLI.hpp)
endif()
