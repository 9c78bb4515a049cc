#include "Apps/Maintd.h"
#include "Agent/Commands/DescriptorLimit.h"
#include "Apps/Background.h"
#include "Apps/Logging.h"
#include "Apps/Owner.h"
#include "Apps/RealAgentProcess.h"

#include "Platform/Vel/Trace.h"

#include <CLI/CLI.hpp>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <filesystem>
#include <set>

namespace {

// Exit statuses; maintd.8 says them. Those of a store that cannot be used and of a wrong configuration are the ones that
// others use for wrong data and configurations, too.
constexpr int statusFailed = 1;
constexpr int statusUsage = 2;
constexpr int statusHeld = 3;
constexpr int statusInUse = 4;
constexpr int statusStore = 65;
constexpr int statusConfiguration = 78;

/// Names of trace facilities that were given a level.
using Traced = std::vector< std::string >;

/// "IntfMonSm=9" switches traces; the text of what is wrong with it, empty if nothing.
std::string traceIs( const std::string & setting, Traced & traced ) {
   const auto equals = setting.rfind( '=' );
   if (
      equals == std::string::npos || equals == 0 || setting.size() != equals + 2 ||
      setting[equals + 1] < '0' || setting[equals + 1] > '9' )
      return "--trace wants NAME=LEVEL, with a level of 0 to 9";
   traced.push_back( setting.substr( 0, equals ) );
   Vel::TraceFacility::levelIs( traced.back(), setting[equals + 1] - '0' );
   return "";
}

/// Most facilities come with the plug-ins, so this can be said only when these have been loaded.
void warnOfUnknown( const Traced & traced ) {
   std::set< std::string > known;
   for ( const Vel::TraceFacility * const facility : Vel::TraceFacility::all() )
      known.insert( facility->name() );
   std::string list;
   for ( const std::string & name : known )
      list += ( list.empty() ? "" : ", " ) + name;
   for ( const std::string & name : traced )
      if ( name != "*" && !known.contains( name ) )
         spdlog::warn( "--trace: there is no trace facility {} so far; there are {}", name, list );
}

/// Where an installed agent has its plug-ins and what else it needs, wherever it was installed; its own libraries are
/// found the same way.
std::string installedDir() {
   std::error_code unknown;
   const auto program = std::filesystem::read_symlink( "/proc/self/exe", unknown );
   return ( program.parent_path() / ".." / MAINT_LIBDIR ).lexically_normal();
}

/// For whoever has started this: with its priority, if that is a service manager that keeps priorities.
void complain( const std::string & problem ) {
   std::fprintf( stderr, "%smaintd: %s\n", Apps::errorPrefix(), problem.c_str() );
}

int releaseAllLinks( const Apps::MaintdOptions & options ) {
   using Outcome = Apps::Released::Outcome;
   const Apps::Released released = Apps::Maintd( options ).releaseAll();
   for ( const std::string & link : released.links )
      std::printf( "released %s\n", link.c_str() );
   for ( const std::string & link : released.held )
      std::printf( "held %s\n", link.c_str() );
   if ( released.links.empty() && released.outcome == Outcome::done )
      std::printf( "no link was held (%s)\n", options.stateDir.c_str() );
   // A folder that is misspelt leaves links down that are held in another one.
   std::error_code unknown;
   if (
      released.outcome == Outcome::done &&
      std::filesystem::status( options.stateDir, unknown ).type() == std::filesystem::file_type::not_found )
      complain( "there is no folder " + options.stateDir + ", so nothing is known of links that are held" );
   for ( const std::string & line : released.left )
      std::puts( line.c_str() );
   if ( !released.problem.empty() )
      complain( released.problem );
   switch ( released.outcome ) {
   case Outcome::done:
      return 0;
   case Outcome::held:
      return statusHeld;
   case Outcome::inUse:
      return statusInUse;
   default:
      return statusFailed;
   }
}

/// Until a signal ends it. `background` is null in the foreground; `runs` is called when it has started.
int runAgent(
   const Apps::MaintdOptions & options, const Traced & traced, Apps::Background * background,
   const std::function< void() > & runs ) {
   Apps::Notify notify( Apps::Notify::takeFromEnvironment() );
   Apps::MaintdWorld world;
   world.notify = &notify;
   Apps::Maintd agent( options, world );
   if ( const std::string problem = agent.start(); !problem.empty() ) {
      // One that is started again has nobody any more who reads what it prints.
      if ( background && options.restarts.value_or( 0 ) > 0 )
         spdlog::error( "{}", problem );
      else
         complain( problem );
      return agent.configurationIsWrong() ? statusConfiguration
             : agent.storeIsUnusable()    ? statusStore
                                          : statusFailed;
   }
   if ( background ) {
      Apps::logToSyslog();
      background->started();
   }
   runs();
   spdlog::info( "maintd {} is running", MAINT_VERSION );
   warnOfUnknown( traced );
   agent.run();
   return 0;
}

int runSupervised(
   const Apps::MaintdOptions & options, const Traced & traced, Apps::Background * background ) {
   Apps::RealAgentProcess process( {
      [&]( const Apps::RealAgentProcess::Start & start ) {
         Apps::MaintdOptions own = options;
         own.restarts = start.restarts;
         own.restartReason = start.reason;
         return runAgent( own, traced, background, start.runs );
      },
      [background] {
         // The agent alone says that it runs: whoever waits for that learns so when there is none.
         if ( background )
            background->forget();
      },
      [background] {
         // The first agent, and we, print why it does not start; from here on there is only the log.
         if ( background ) {
            background->leave();
            Apps::logToSyslog();
         }
      },
      []( const std::string & line ) { spdlog::error( "{}", line ); },
   } );
   return Apps::Supervisor( process ).run();
}

} // namespace

int main( int argc, char ** argv ) {
   Apps::MaintdOptions options;
   options.pluginDir = installedDir();
   options.httpHook = installedDir() + "/http-hook";
   options.version = MAINT_VERSION;
   std::vector< std::string > traces;
   Traced traced;
   bool foreground = false, releaseAll = false, supervised = false;

   CLI::App app{
      "Takes units of a switch into and out of maintenance, and knows when their traffic has gone" };
   app.name( "maintd" );
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
   auto * const supervise = app.add_flag(
      "--supervise", supervised, "start the agent again when it aborts; where no service manager does" );
   app.add_flag( "--release-all", releaseAll, "raise every link that we hold, without stages, and end" )
      ->excludes( supervise );
   try {
      app.parse( argc, argv );
   } catch ( const CLI::ParseError & error ) {
      if ( error.get_exit_code() == 0 )
         return app.exit( error );
      complain( error.what() );
      return statusUsage;
   }
   for ( const std::string & setting : traces )
      if ( const std::string problem = traceIs( setting, traced ); !problem.empty() ) {
         complain( problem );
         return statusUsage;
      }
   Apps::logToStandardError();

   // In the background the folder that we were started in is left, and the files are read again later.
   for ( std::string * path :
         { &options.config, &options.stateDir, &options.runtimeDir, &options.socket, &options.pluginDir } )
      if ( !path->empty() )
         *path = std::filesystem::absolute( *path ).lexically_normal();

   if ( const std::string problem = Apps::becomeOwnerOf( options.stateDir, options.runtimeDir );
        !problem.empty() ) {
      complain( problem );
      return statusFailed;
   }
   if ( releaseAll )
      return releaseAllLinks( options );
   Agent::descriptorLimitRaise();
   Apps::Background background;
   if ( !foreground )
      if ( const auto ended = background.begin() )
         return *ended;
   Apps::Background * const behind = foreground ? nullptr : &background;
   return supervised ? runSupervised( options, traced, behind ) : runAgent( options, traced, behind, [] {} );
}
