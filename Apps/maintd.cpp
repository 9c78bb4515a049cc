#include "Apps/Maintd.h"

#include "Platform/Vel/Error.h"
#include "Platform/Vel/Log.h"
#include "Platform/Vel/Trace.h"

#include <CLI/CLI.hpp>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <unistd.h>

#include <cstdio>

namespace {

void logTo( const std::shared_ptr< spdlog::logger > & logger ) {
   spdlog::set_default_logger( logger );
   spdlog::set_pattern( "%Y-%m-%dT%H:%M:%S.%e %l %v" );
   Vel::traceSinkIs(
      []( void *, const Vel::TraceFacility & facility, int level, std::string_view text ) {
         spdlog::info( "trace {}/{} {}", facility.name(), level, text );
      },
      nullptr );
   Vel::logSinkIs(
      []( void *, const Vel::LogHandle & handle, std::string_view text ) {
         spdlog::warn( "{}: {}", handle.name(), text );
      },
      nullptr );
}

/// "IntfMonSm=9" switches traces; the text of what is wrong with it, empty if nothing.
std::string traceIs( const std::string & setting ) {
   const auto equals = setting.rfind( '=' );
   if (
      equals == std::string::npos || equals == 0 || setting.size() != equals + 2 ||
      setting[equals + 1] < '0' || setting[equals + 1] > '9' )
      return "--trace wants NAME=LEVEL, with a level of 0 to 9";
   Vel::TraceFacility::levelIs( setting.substr( 0, equals ), setting[equals + 1] - '0' );
   return "";
}

} // namespace

int main( int argc, char ** argv ) {
   Apps::MaintdOptions options;
   options.pluginDir = MAINT_PLUGIN_DIR;
   options.version = MAINT_VERSION;
   std::vector< std::string > traces;
   bool foreground = false, releaseAll = false;

   CLI::App app{
      "maintd: takes units of a switch into and out of maintenance, and knows when their traffic has gone" };
   app.set_version_flag( "--version", std::string( "maintd " ) + MAINT_VERSION );
   app.add_option( "--config", options.config, "configuration file" )->capture_default_str();
   app.add_option( "--state-dir", options.stateDir, "what must survive everything" )->capture_default_str();
   app.add_option( "--runtime-dir", options.runtimeDir, "what must survive a restart of the agent" )
      ->capture_default_str();
   app.add_option(
      "--socket", options.socket, "control socket; default: control.sock in the runtime folder" );
   app.add_option( "--plugin-dir", options.pluginDir, "where plug-ins are" )->capture_default_str();
   app.add_option( "--trace", traces, "NAME=LEVEL: show traces of a facility up to a level" );
   app.add_flag( "--foreground", foreground, "stay in the foreground" );
   app.add_flag( "--release-all", releaseAll, "raise every link that we hold, without stages, and end" );
   try {
      app.parse( argc, argv );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 2;
   }
   for ( const std::string & setting : traces )
      if ( const std::string problem = traceIs( setting ); !problem.empty() ) {
         std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
         return 2;
      }
   logTo( spdlog::stderr_logger_st( "maintd" ) );

   Apps::Maintd agent( options );
   if ( releaseAll ) {
      const std::string problem = agent.releaseAll();
      if ( !problem.empty() )
         std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
      return problem.empty() ? 0 : 1;
   }
   if ( !foreground && daemon( 1, 1 ) != 0 ) {
      std::perror( "maintd: cannot go to the background" );
      return 1;
   }
   if ( const std::string problem = agent.start(); !problem.empty() ) {
      std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
      return 1;
   }
   spdlog::info( "maintd {} is running", MAINT_VERSION );
   agent.run();
   return 0;
}
