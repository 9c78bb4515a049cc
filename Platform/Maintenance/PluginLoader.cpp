#include "Platform/Maintenance/PluginLoader.h"

#include "Platform/Vel/Error.h"
#include "Platform/Vel/Trace.h"

#include <algorithm>

namespace Maintenance {

namespace {
Vel::TraceFacility trace( "PluginLoader" );
}

PluginObject::~PluginObject() {
   if ( loader_ )
      loader_->pluginDel( *this );
}

PluginLoader::~PluginLoader() {
   for ( const Plugin & plugin : plugins_ )
      plugin.initCaller.plugin()->loader_ = nullptr;
}

void PluginLoader::registerPlugin(
   const Vel::String & name, const Vel::String & loaderName, const Vel::String & description,
   const Vel::String & version, const InitCaller & initCaller ) {
   if ( name.empty() || !initCaller.plugin() )
      throw Vel::RangeError( "a plug-in needs a name and an object" );
   if ( loaderName != name_ )
      throw Vel::RangeError(
         "plug-in " + name + " registers with loader " + name_ + " but means loader " + loaderName );
   if ( plugin( name ) )
      throw Vel::NameInUse( "plug-in " + name + " is registered already" );
   if ( initCaller.plugin()->loader_ )
      throw Vel::NameInUse( "the object of plug-in " + name + " is registered already" );
   plugins_.push_back( { name, description, version, initCaller } );
   initCaller.plugin()->loader_ = this;
}

std::vector< PluginLoader::Failure > PluginLoader::initPlugins( PluginContext * context ) {
   std::vector< Vel::String > names;
   for ( const Plugin & plugin : plugins_ )
      if ( !plugin.initialized )
         names.push_back( plugin.name );

   // A plug-in may bring or take others while it initialises, so each is looked up by its name.
   std::vector< Failure > failures;
   for ( const Vel::String & name : names ) {
      const Plugin * plugin = find( name );
      if ( !plugin || plugin->initialized )
         continue;
      const InitCaller initCaller = plugin->initCaller;
      try {
         initCaller( context );
      } catch ( const Vel::Exception & error ) {
         VEL_TRACE( trace, 4, "PluginLoader::initPlugins: ", name, " refused: ", error.what() );
         failures.push_back( { name, error.what() } );
         continue;
      }
      VEL_TRACE( trace, 4, "PluginLoader::initPlugins: ", name, " initialized" );
      if ( Plugin * initialized = find( name ) )
         initialized->initialized = true;
   }
   return failures;
}

const PluginLoader::Plugin * PluginLoader::plugin( const Vel::String & name ) const {
   return const_cast< PluginLoader * >( this )->find( name );
}

PluginLoader::Plugin * PluginLoader::find( const Vel::String & name ) {
   const auto it = std::find_if(
      plugins_.begin(), plugins_.end(), [&]( const Plugin & plugin ) { return plugin.name == name; } );
   return it == plugins_.end() ? nullptr : &*it;
}

void PluginLoader::pluginDel( const PluginObject & gone ) {
   std::erase_if( plugins_, [&]( const Plugin & plugin ) { return plugin.initCaller.plugin() == &gone; } );
}

PluginLoader & DefaultPluginLoader() {
   static PluginLoader loader( "default" );
   return loader;
}

} // namespace Maintenance
