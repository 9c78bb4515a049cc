# What others need to build plug-ins: the platform's headers, a CMake package, an example.
install( DIRECTORY Platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/maintd FILES_MATCHING
  PATTERN "*.h" PATTERN "*Test.h" EXCLUDE PATTERN "*Rig.h" EXCLUDE )

file( STRINGS Platform/Maintenance/PluginInterface.h line REGEX "^#define MAINT_PLUGIN_INTERFACE [0-9]+$" )
string( REGEX REPLACE ".* " "" MAINT_PLUGIN_INTERFACE "${line}" )
set( folder ${CMAKE_INSTALL_LIBDIR}/cmake/MaintPlugin )
string( REGEX REPLACE "[^/]+" ".." MAINT_CONFIG_TO_PREFIX "${folder}" )
configure_file( CMake/MaintPluginConfig.cmake.in MaintPluginConfig.cmake @ONLY )
include( CMakePackageConfigHelpers )
write_basic_package_version_file( ${CMAKE_CURRENT_BINARY_DIR}/MaintPluginConfigVersion.cmake COMPATIBILITY SameMinorVersion )
install( FILES ${CMAKE_CURRENT_BINARY_DIR}/MaintPluginConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/MaintPluginConfigVersion.cmake
  DESTINATION ${folder} )
install( DIRECTORY Examples/UnitJournal DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/maintd-plugin-dev/examples )
