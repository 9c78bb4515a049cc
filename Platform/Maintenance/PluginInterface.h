#pragma once

/// Purpose: which plug-ins an agent can load. The number rises with every change of what agent and plug-in share. Behind
/// it stands a checksum of the headers that the plug-in was built with, MAINT_PLUGIN_HEADERS, which the build gives: a
/// plug-in that was not built again after a change of them shares nothing that fits, whatever its number says.
///
/// Both stand in a plug-in's file as text, so that the agent can look before any of the plug-in's code runs.
#define MAINT_PLUGIN_INTERFACE 1

#define MAINT_PLUGIN_INTERFACE_MARK "maintd plug-in interface "
#define MAINT_PLUGIN_HEADERS_MARK ", headers "

#define MAINT_PLUGIN_TEXT_OF( number ) #number
#define MAINT_PLUGIN_TEXT( number ) MAINT_PLUGIN_TEXT_OF( number )

/// Stands once in the entry file of every plug-in.
#define MAINT_PLUGIN_DECLARE()                                                                               \
   extern "C" const char maintPluginInterface[];                                                             \
   const char maintPluginInterface[] =                                                                       \
      MAINT_PLUGIN_INTERFACE_MARK MAINT_PLUGIN_TEXT( MAINT_PLUGIN_INTERFACE )                                \
   MAINT_PLUGIN_HEADERS_MARK MAINT_PLUGIN_HEADERS "."
