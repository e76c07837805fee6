# The tool tree the compile driver expects below the host's working directory:
#   Ruvo/clang_compiler/clang++, Ruvo/clang_format/{clang-format.exe,.clang-format},
#   Ruvo/RuvoBase/RuvoBase.{h,cpp}, Ruvo/KELN_Ruvo_Include/..., Ruvo/KELN_Ruvo_Lib/lib*.so
# laid out in the build directory from the system clang++ and clang-format (on Windows the
# import libraries *.lib, and no compiler).

if(NOT WIN32)
  find_program(RUVO_CLANGXX NAMES clang++ clang++-14 REQUIRED)
  find_program(RUVO_CLANG_FORMAT NAMES clang-format clang-format-14 REQUIRED)
endif()

set(RUVO_TOOL_ROOT ${CMAKE_BINARY_DIR}/Ruvo)
set(inc ${RUVO_TOOL_ROOT}/KELN_Ruvo_Include)
# Applet-only texts live in RuvoManager/inc; the records the library compiles too live in
# model/records. Applets see them side by side.
set(applet_texts applet_global_def.h database.h configuration.h document.txt mp_ruvo.h
    declare_property.template define_can_struct.template)
set(record_texts ruvo_basic_def.h ruvo_generate_def.h ruvo_variable_def.h ruvo_com_def.h)

set(steps
  COMMAND ${CMAKE_COMMAND} -E make_directory ${RUVO_TOOL_ROOT}/clang_compiler
          ${RUVO_TOOL_ROOT}/clang_format ${RUVO_TOOL_ROOT}/RuvoBase ${RUVO_TOOL_ROOT}/KELN_Ruvo_Lib
          ${inc}/RuvoManager/inc ${inc}/CommonKit ${inc}/HostBridge)
if(NOT WIN32)
  # A Windows installation brings its own clang++.exe and clang-format.exe.
  list(APPEND steps
    COMMAND ${CMAKE_COMMAND} -E create_symlink ${RUVO_CLANGXX} ${RUVO_TOOL_ROOT}/clang_compiler/clang++
    COMMAND ${CMAKE_COMMAND} -E create_symlink ${RUVO_CLANG_FORMAT}
            ${RUVO_TOOL_ROOT}/clang_format/clang-format.exe)
endif()
list(APPEND steps
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/build/clang-format.style
          ${RUVO_TOOL_ROOT}/clang_format/.clang-format
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/RuvoManager/inc/RuvoBase/RuvoBase.h
          ${CMAKE_SOURCE_DIR}/RuvoManager/inc/RuvoBase/RuvoBase.cpp ${RUVO_TOOL_ROOT}/RuvoBase
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/platform/export.h
          ${inc}/RuvoManager/ruvo_export.h
  COMMAND ${CMAKE_COMMAND} -DIN=${CMAKE_SOURCE_DIR}/dispatch/RuvoTimer.h
          -DOUT=${inc}/RuvoManager/RuvoTimer.h -P ${CMAKE_SOURCE_DIR}/cmake/flatten_include.cmake
  # The XCP master's records and function types come from the host, beside the table.
  COMMAND ${CMAKE_COMMAND} -DIN=${CMAKE_SOURCE_DIR}/model/records/ruvo_xcp_def.h
          -DOUT=${inc}/RuvoManager/inc/ruvo_xcp_def.h -P ${CMAKE_SOURCE_DIR}/cmake/flatten_include.cmake
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/host/xcp/xcp_defs.h
          ${inc}/RuvoManager/inc/xcp_defs.h
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/host/inc/commonkit.h
          ${CMAKE_SOURCE_DIR}/host/inc/commonkitstring.h ${inc}/CommonKit
)
foreach(text ${applet_texts})
  list(APPEND steps COMMAND ${CMAKE_COMMAND} -E copy_if_different
       ${CMAKE_SOURCE_DIR}/RuvoManager/inc/${text} ${inc}/RuvoManager/inc/${text})
endforeach()
foreach(text ${record_texts})
  list(APPEND steps COMMAND ${CMAKE_COMMAND} -E copy_if_different
       ${CMAKE_SOURCE_DIR}/model/records/${text} ${inc}/RuvoManager/inc/${text})
endforeach()
# The host libraries an applet links: all of them live in HostBridge here. Windows links
# through import libraries (NAME.lib for -lNAME).
if(WIN32)
  list(APPEND steps COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_LINKER_FILE:RuvoManager>
       ${RUVO_TOOL_ROOT}/KELN_Ruvo_Lib/RuvoManager.lib)
  foreach(lib HostBridge VarStore DeviceHub CommonKit)
    list(APPEND steps COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_LINKER_FILE:HostBridge>
         ${RUVO_TOOL_ROOT}/KELN_Ruvo_Lib/${lib}.lib)
  endforeach()
else()
  list(APPEND steps COMMAND ${CMAKE_COMMAND} -E create_symlink ../../lib/$<TARGET_FILE_NAME:RuvoManager>
       ${RUVO_TOOL_ROOT}/KELN_Ruvo_Lib/libRuvoManager.so)
  foreach(lib HostBridge VarStore DeviceHub CommonKit)
    list(APPEND steps COMMAND ${CMAKE_COMMAND} -E create_symlink ../../lib/$<TARGET_FILE_NAME:HostBridge>
         ${RUVO_TOOL_ROOT}/KELN_Ruvo_Lib/lib${lib}.so)
  endforeach()
endif()

# The sample catalogue lies below the installation directory itself, beside Ruvo/.
file(GLOB sample_texts CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/RuvoManager/inc/sample/*)
set(RUVO_SAMPLE_DIR ${CMAKE_BINARY_DIR}/RuvoManager/inc/sample)
list(APPEND steps COMMAND ${CMAKE_COMMAND} -E make_directory ${RUVO_SAMPLE_DIR}
     COMMAND ${CMAKE_COMMAND} -E copy_if_different ${sample_texts} ${RUVO_SAMPLE_DIR})

add_custom_target(ruvo_tool_tree ALL ${steps}
  COMMENT "Laying out the applet tool tree in ${RUVO_TOOL_ROOT}" VERBATIM)
add_dependencies(ruvo_tool_tree RuvoManager HostBridge)

install(TARGETS RuvoManager HostBridge LIBRARY DESTINATION lib)
install(DIRECTORY ${RUVO_TOOL_ROOT} DESTINATION . USE_SOURCE_PERMISSIONS)
install(DIRECTORY ${RUVO_SAMPLE_DIR} DESTINATION RuvoManager/inc)
