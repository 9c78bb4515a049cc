# MAINT_PLUGIN_HEADERS: a checksum of all headers that plug-ins can include. Agent and plug-in share types, so a plug-in
# that was built with others must not run, also if nobody has thought of raising the number of the interface.
file( GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS Platform/*.h )
list( FILTER headers EXCLUDE REGEX "(Test|Rig)\\.h$" )
list( SORT headers )
set_property( DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers} )
execute_process(
  COMMAND awk -f Tools/strip.awk -f CMake/PluginHeaders.awk ${headers}
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  OUTPUT_VARIABLE seen COMMAND_ERROR_IS_FATAL ANY )
string( SHA256 checksum "${seen}" )
string( SUBSTRING ${checksum} 0 16 MAINT_PLUGIN_HEADERS )
message( STATUS "Headers of plug-ins: ${MAINT_PLUGIN_HEADERS}" )
