#pragma once

#include "Api/Error.h"
#include "Platform/Maintenance/PluginContext.h"
#include "Platform/Maintenance/PluginLoader.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Purpose: opens the libraries of plug-ins and begins their work. A plug-in that cannot be used leaves the agent
/// running; what needs it is refused with the reason.
/// Owner: the agent. Libraries stay open until the process ends or close() is called: nothing unloads a plug-in while it
/// works.
namespace Agent {

class PluginLibraries {
 public:
   using Result = std::optional< Api::Error >;

   explicit PluginLibraries( Maintenance::PluginLoader & loader ) : loader_( loader ) {}

   /// Opens one library and begins the work of the plug-in in it, which must register under this name. The refusal
   /// names the file and what is wrong: missing, not a library, of another interface version, or its own refusal.
   Result
   load( const std::string & pluginName, const std::string & path, Maintenance::PluginContext * context );

   /// Opens every other library of the folder that is a plug-in, in the order of file names, and begins the work of what
   /// is in it. What cannot be used is left out and is among others().
   void
   loadOthers( const std::string & folder, const std::string & except, Maintenance::PluginContext * context );
   /// The plug-ins that loadOthers() has found, by file name; with the refusal, none: it works.
   const std::map< std::string, Result > & others() const { return others_; }

   /// Closes all libraries that were opened here. What their plug-ins have put into the context has been taken out
   /// before.
   void close();

   /// Why the plug-in is not working, with the text that load() gave; none: it is.
   Result problem( const std::string & pluginName ) const;

 private:
   Maintenance::PluginLoader & loader_;
   std::map< std::string, Result > plugins_;
   std::map< std::string, Result > others_;
   std::vector< void * > open_;
};

/// The interface number that a library's file was built for, read without opening the library. None: there is none.
std::optional< unsigned > pluginInterface( const std::string & fileContent );
/// The checksum of the headers that it was built with; empty: there is none.
std::string pluginHeaders( const std::string & fileContent );

} // namespace Agent
