#include "Agent/Plugins/PluginLibraries.h"

#include "Platform/Maintenance/PluginInterface.h"
#include "Platform/Vel/Error.h"

#include <dlfcn.h>

#include <algorithm>
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

std::string pluginHeaders( const std::string & fileContent ) {
   constexpr std::string_view mark = MAINT_PLUGIN_INTERFACE_MARK, headers = MAINT_PLUGIN_HEADERS_MARK;
   auto at = fileContent.find( mark );
   at = at == std::string::npos ? at : fileContent.find_first_not_of( "0123456789", at + mark.size() );
   if ( at == std::string::npos || fileContent.compare( at, headers.size(), headers ) != 0 )
      return "";
   at += headers.size();
   return fileContent.substr( at, fileContent.find_first_not_of( "0123456789abcdef", at ) - at );
}

namespace {

/// A library that may be opened, or why not.
struct Opened {
   void * library = nullptr;
   PluginLibraries::Result refusal;
   bool isPlugin = true; ///< a plug-in of whatever interface
};

Opened open( const std::string & path ) {
   std::ifstream file( path, std::ios::binary );
   if ( !file )
      return { nullptr, unavailable( path, std::strerror( errno ) ) };
   std::error_code none;
   const auto size = std::filesystem::file_size( path, none );
   std::string content( none ? 0 : size, '\0' );
   file.read( content.data(), static_cast< std::streamsize >( content.size() ) );
   const auto number = pluginInterface( content );
   if ( !number )
      return { nullptr, unavailable( path, "it is not a plug-in for this agent" ), false };
   if ( *number != MAINT_PLUGIN_INTERFACE )
      return {
         nullptr, unavailable(
                     path, "it was built for interface " + std::to_string( *number ) + ", this agent has " +
                              MAINT_PLUGIN_TEXT( MAINT_PLUGIN_INTERFACE ) ) };
   if ( pluginHeaders( content ) != MAINT_PLUGIN_HEADERS )
      return {
         nullptr,
         unavailable(
            path, "it was built with other headers than this agent, although for the same interface; "
                  "build it again" ) };
   void * const library = dlopen( path.c_str(), RTLD_NOW | RTLD_LOCAL );
   if ( !library )
      return { nullptr, unavailable( path, dlerror() ) };
   return { library, std::nullopt };
}

} // namespace

PluginLibraries::Result PluginLibraries::load(
   const std::string & pluginName, const std::string & path, Maintenance::PluginContext * context ) {
   Result & result = plugins_[pluginName];
   const Opened opened = open( path );
   if ( opened.refusal )
      return result = opened.refusal;
   if ( !loader_.plugin( pluginName ) ) {
      dlclose( opened.library );
      return result = unavailable( path, "it does not contain " + pluginName );
   }
   for ( const auto & failure : loader_.initPlugins( context ) )
      if ( failure.name == pluginName ) {
         dlclose( opened.library );
         return result = unavailable( path, failure.text );
      }
   open_.push_back( opened.library );
   return result = std::nullopt;
}

void PluginLibraries::loadOthers(
   const std::string & folder, const std::string & except, Maintenance::PluginContext * context ) {
   std::vector< std::string > names;
   std::error_code error;
   for ( std::filesystem::directory_iterator at( folder, error ), end; !error && at != end;
         at.increment( error ) )
      if ( const auto name = at->path().filename(); name.extension() == ".so" && name != except )
         names.push_back( name );
   std::sort( names.begin(), names.end() );
   for ( const std::string & name : names ) {
      const std::string path = folder + "/" + name;
      const Opened opened = open( path );
      // Libraries that plug-ins need lie beside them.
      if ( !opened.isPlugin )
         continue;
      Result & result = others_[name] = opened.refusal;
      if ( result )
         continue;
      for ( const auto & failure : loader_.initPlugins( context ) )
         result = unavailable( path, failure.text );
      if ( result )
         dlclose( opened.library );
      else
         open_.push_back( opened.library );
   }
}

void PluginLibraries::close() {
   plugins_.clear();
   others_.clear();
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
