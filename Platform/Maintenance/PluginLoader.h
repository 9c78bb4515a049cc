#pragma once

#include "Platform/Maintenance/PluginBase.h"
#include "Platform/Vel/String.h"

#include <vector>

namespace Maintenance {

class PluginContext;

/// How a loader begins a plug-in's work. The plug-in outlives it, see PluginObject.
class InitCaller {
 public:
   explicit InitCaller( PluginBase< PluginContext > * plugin ) : plugin_( plugin ) {}
   void operator()( PluginContext * context ) const { plugin_->init( context ); }
   PluginBase< PluginContext > * plugin() const { return plugin_; }

 private:
   PluginBase< PluginContext > * plugin_;
};

/// Purpose: the plug-ins that are in the process, in the order in which they registered. A plug-in registers
/// from the static objects of its library, so whoever opens a library finds it here afterwards, and no longer
/// once the library is closed. Opening and closing libraries is the agent's business.
class PluginLoader {
 public:
   struct Plugin {
      Vel::String name;
      Vel::String description; ///< for the operator; may be empty
      Vel::String version;     ///< for the operator; may be empty
      InitCaller initCaller;
      bool initialized = false; ///< its init() has returned
   };
   struct Failure {
      Vel::String name; ///< of the plug-in
      Vel::String text;
   };

   explicit PluginLoader( Vel::String name ) : name_( std::move( name ) ) {}
   ~PluginLoader();
   PluginLoader( const PluginLoader & ) = delete;
   PluginLoader & operator=( const PluginLoader & ) = delete;

   /// What a plug-in hands back when it registers, as proof of which loader it means.
   const Vel::String & name() const { return name_; }

   /// Adds a plug-in until it is destroyed. Throws Vel::NameInUse if one of that name is there,
   /// Vel::RangeError if the name is empty, there is no plug-in, or it means another loader.
   void registerPlugin(
      const Vel::String & name, const Vel::String & loaderName, const Vel::String & description,
      const Vel::String & version, const InitCaller & initCaller );

   /// Initialises the plug-ins that are not yet, in the order of registration. Those that refuse are returned
   /// with the reason and stay uninitialised.
   std::vector< Failure > initPlugins( PluginContext * context );

   const std::vector< Plugin > & plugins() const { return plugins_; }
   /// Null if there is none of that name. Valid until a plug-in comes or goes.
   const Plugin * plugin( const Vel::String & name ) const;

 private:
   friend class PluginObject;
   Plugin * find( const Vel::String & name );
   void pluginDel( const PluginObject & plugin );

   Vel::String name_;
   std::vector< Plugin > plugins_;
};

/// The loader of the process.
PluginLoader & DefaultPluginLoader();

} // namespace Maintenance
