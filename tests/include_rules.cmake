# The include rules that keep the layers reading bottom-up, run by CTest as
#   cmake -DSOURCE_DIR=<repository> -DRULE=<rule> -P include_rules.cmake
#   RULE=exports  nothing outside src/api/ includes a header of src/api/: the exports sit on top
#                 of every subsystem, and the programs around the library (the tool, the
#                 benchmarks, the fuzz targets) use the public header or the layers below.
#   RULE=tool     the command-line tool includes only the public header, the simulator's headers
#                 and its own files (apps/velmora/, included as "velmora/...").
#   RULE=layers   a library folder includes only its own headers and those of the folders below
#                 it: common, rig, flow, tools, fusion, repair, api from the bottom up; the
#                 simulator stands on common and rig.
# Every offending include is printed with its file, and any offence fails the test.
cmake_minimum_required(VERSION 3.16)

if(NOT SOURCE_DIR OR NOT RULE)
  message(FATAL_ERROR "Usage: cmake -DSOURCE_DIR=<repository> -DRULE=exports|tool|layers -P include_rules.cmake")
endif()

if(RULE STREQUAL "exports")
  set(folders src apps bench fuzz)
  set(exempt_folder "${SOURCE_DIR}/src/api/")
  set(forbidden "^api/")
elseif(RULE STREQUAL "tool")
  set(folders apps)
  set(exempt_folder "")
  set(permitted "^(velmora\\.h|velmora/.*|sim/.*)$")
elseif(RULE STREQUAL "layers")
  set(layer_order common rig flow tools fusion repair api)
  set(folders ${layer_order} sim)
  set(exempt_folder "")
  set(below_sim common rig)
  set(below)
  foreach(layer IN LISTS layer_order)
    set(below_${layer} ${below})
    list(APPEND below ${layer})
  endforeach()
else()
  message(FATAL_ERROR "Unknown rule '${RULE}': exports, tool or layers.")
endif()

set(offences 0)
foreach(folder IN LISTS folders)
  if(RULE STREQUAL "layers")
    set(folder_path "src/${folder}")
    string(JOIN "|" usable ${folder} ${below_${folder}})
    set(permitted "^(velmora\\.h|velmora_version\\.h|(${usable})/.*)$")
  else()
    set(folder_path "${folder}")
  endif()
  file(GLOB_RECURSE files "${SOURCE_DIR}/${folder_path}/*.h" "${SOURCE_DIR}/${folder_path}/*.hpp"
       "${SOURCE_DIR}/${folder_path}/*.c" "${SOURCE_DIR}/${folder_path}/*.cpp" "${SOURCE_DIR}/${folder_path}/*.in")
  foreach(file IN LISTS files)
    if(exempt_folder AND file MATCHES "^${exempt_folder}")
      continue()
    endif()
    file(READ "${file}" text)
    string(REGEX MATCHALL "#[ \t]*include[ \t]*\"[^\"\n]*\"" includes "${text}")
    foreach(include IN LISTS includes)
      string(REGEX REPLACE "^#[ \t]*include[ \t]*\"([^\"]*)\"$" "\\1" header "${include}")
      if(RULE STREQUAL "exports")
        set(broken FALSE)
        if(header MATCHES "${forbidden}")
          set(broken TRUE)
        endif()
      else()
        set(broken TRUE)
        if(header MATCHES "${permitted}")
          set(broken FALSE)
        endif()
      endif()
      if(broken)
        file(RELATIVE_PATH shown "${SOURCE_DIR}" "${file}")
        message("${shown}: ${include}")
        math(EXPR offences "${offences} + 1")
      endif()
    endforeach()
  endforeach()
endforeach()

if(offences GREATER 0)
  message(FATAL_ERROR "${offences} include(s) break the '${RULE}' rule.")
endif()
