#include "Agent/Plugins/PluginLibraries.h"

#include "Platform/Maintenance/PluginInterface.h"
#include "Platform/Vel/Error.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace Agent {

namespace {

Api::Error unavailable( const std::string & path, const std::string & what ) {
   return { Api::ErrorCode::unavailable, "plug-in " + path + ": " + what, path };
}

} // namespace

std::optional< unsigned > pluginInterface( const std::string & fileContent ) {
   constexpr std::string_view mark = MAINT_PLUGIN_INTERFACE_MARK;
   const auto at = fileContent.find( mark );
   if ( at == std::string::npos )
      return std::nullopt;
   unsigned number = 0;
   bool any = false;
   for ( auto i = at + mark.size();
         i < fileContent.size() && fileContent[i] >= '0' && fileContent[i] <= '9' && number < 1000000; ++i ) {
      number = number * 10 + static_cast< unsigned >( fileContent[i] - '0' );
      any = true;
   }
   return any ? std::optional( number ) : std::nullopt;
}

PluginLibraries::Result PluginLibraries::load(
   const std::string & pluginName, const std::string & path, Maintenance::PluginContext * context ) {
   Result & result = plugins_[pluginName];
   std::ifstream file( path, std::ios::binary );
   if ( !file )
      return result = unavailable( path, std::strerror( errno ) );
   std::error_code none;
   const auto size = std::filesystem::file_size( path, none );
   std::string content( none ? 0 : size, '\0' );
   file.read( content.data(), static_cast< std::streamsize >( content.size() ) );
   const auto number = pluginInterface( content );
   if ( !number )
      return result = unavailable( path, "it is not a plug-in for this agent" );
   if ( *number != MAINT_PLUGIN_INTERFACE )
      return result = unavailable(
                path, "it was built for interface " + std::to_string( *number ) + ", this agent has " +
                         MAINT_PLUGIN_TEXT( MAINT_PLUGIN_INTERFACE ) );
   void * const library = dlopen( path.c_str(), RTLD_NOW | RTLD_LOCAL );
   if ( !library )
      return result = unavailable( path, dlerror() );
   if ( !loader_.plugin( pluginName ) ) {
      dlclose( library );
      return result = unavailable( path, "it does not contain " + pluginName );
   }
   for ( const auto & failure : loader_.initPlugins( context ) )
      if ( failure.name == pluginName ) {
         dlclose( library );
         return result = unavailable( path, failure.text );
      }
   open_.push_back( library );
   return result = std::nullopt;
}

void PluginLibraries::close() {
   plugins_.clear();
   for ( ; !open_.empty(); open_.pop_back() )
      dlclose( open_.back() );
}

PluginLibraries::Result PluginLibraries::problem( const std::string & pluginName ) const {
   const auto it = plugins_.find( pluginName );
   if ( it == plugins_.end() )
      return Api::Error{
         Api::ErrorCode::unavailable, "plug-in " + pluginName + " is not loaded", pluginName };
   return it->second;
}

} // namespace Agent
