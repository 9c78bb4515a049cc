#include "Apps/Maintd.h"
#include "Apps/RealAgentProcess.h"

#include "Platform/Vel/Error.h"
#include "Platform/Vel/Log.h"
#include "Platform/Vel/Trace.h"

#include <CLI/CLI.hpp>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

namespace {

void logTo( const std::shared_ptr< spdlog::logger > & logger, const char * pattern ) {
   spdlog::set_default_logger( logger );
   logger->flush_on( spdlog::level::trace );
   logger->set_pattern( pattern );
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

/// Where an installed agent has its plug-ins and what else it needs, wherever it was installed; its own libraries are
/// found the same way.
std::string installedDir() {
   std::error_code unknown;
   const auto program = std::filesystem::read_symlink( "/proc/self/exe", unknown );
   return ( program.parent_path() / ".." / MAINT_LIBDIR ).lexically_normal();
}

/// The way of a program into the background: whoever has started it waits until it runs, and is told by the exit status
/// if it does not.
class Background {
 public:
   /// The exit status in the process that was started; nothing in the one that goes on.
   std::optional< int > begin() {
      int ends[2];
      const pid_t process = pipe2( ends, O_CLOEXEC ) == 0 ? fork() : -1;
      if ( process < 0 ) {
         std::perror( "maintd: cannot go to the background" );
         return 1;
      }
      if ( process == 0 ) {
         close( ends[0] );
         report_ = ends[1];
         setsid();
         return std::nullopt;
      }
      close( ends[1] );
      char word = 0;
      ssize_t got;
      do
         got = read( ends[0], &word, 1 );
      while ( got < 0 && errno == EINTR );
      return got == 1 ? 0 : 1;
   }

   /// Lets go of the terminal and of the folder that we were started in, which could not be unmounted otherwise.
   void leave() {
      if ( const int nowhere = open( "/dev/null", O_RDWR ); nowhere >= 0 ) {
         for ( const int standard : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } )
            dup2( nowhere, standard );
         if ( nowhere > STDERR_FILENO )
            close( nowhere );
      }
      if ( chdir( "/" ) != 0 )
         spdlog::warn( "the folder cannot be left: {}", std::strerror( errno ) );
   }

   /// It runs: nobody waits any more. Whoever has waited is gone already when an agent is started again.
   void started() {
      leave();
      if ( write( report_, "", 1 ) != 1 && errno != EPIPE )
         spdlog::warn( "whoever has started this was not told: {}", std::strerror( errno ) );
      close( report_ );
   }

 private:
   int report_ = -1;
};

void logToSyslog() {
   constexpr char name[] = "syslog";
   // A supervisor's child has taken it over.
   if ( !spdlog::get( name ) )
      logTo( spdlog::syslog_logger_st( name, "maintd", LOG_PID, LOG_DAEMON ), "%v" );
}

int releaseAllLinks( const Apps::MaintdOptions & options ) {
   std::vector< std::string > released;
   const std::string problem = Apps::Maintd( options ).releaseAll( &released );
   for ( const std::string & link : released )
      std::printf( "released %s\n", link.c_str() );
   if ( released.empty() && problem.empty() )
      std::puts( "no link was held" );
   if ( !problem.empty() )
      std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
   return problem.empty() ? 0 : 1;
}

/// Until a signal ends it. `background` is null in the foreground.
int runAgent( const Apps::MaintdOptions & options, Background * background ) {
   Apps::Notify notify( Apps::Notify::takeFromEnvironment() );
   Apps::MaintdWorld world;
   world.notify = &notify;
   Apps::Maintd agent( options, world );
   if ( const std::string problem = agent.start(); !problem.empty() ) {
      // One that is started again has nobody any more who reads what it prints.
      if ( background && options.restarts.value_or( 0 ) > 0 )
         spdlog::error( "{}", problem );
      else
         std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
      return 1;
   }
   if ( background ) {
      logToSyslog();
      background->started();
   }
   spdlog::info( "maintd {} is running", MAINT_VERSION );
   agent.run();
   return 0;
}

int runSupervised( const Apps::MaintdOptions & options, Background * background ) {
   Apps::RealAgentProcess process(
      [&]( unsigned restarts, const std::string & reason ) {
         Apps::MaintdOptions own = options;
         own.restarts = restarts;
         own.restartReason = reason;
         return runAgent( own, background );
      },
      [background] {
         // The first agent still prints why it does not start; we, and those after it, have only the log.
         if ( background ) {
            background->leave();
            logToSyslog();
         }
      },
      []( const std::string & line ) { spdlog::error( "{}", line ); } );
   return Apps::Supervisor( process ).run();
}

} // namespace

int main( int argc, char ** argv ) {
   Apps::MaintdOptions options;
   options.pluginDir = installedDir();
   options.httpHook = installedDir() + "/http-hook";
   options.version = MAINT_VERSION;
   std::vector< std::string > traces;
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
      std::fprintf( stderr, "maintd: %s\n", error.what() );
      return 2;
   }
   for ( const std::string & setting : traces )
      if ( const std::string problem = traceIs( setting ); !problem.empty() ) {
         std::fprintf( stderr, "maintd: %s\n", problem.c_str() );
         return 2;
      }
   logTo( spdlog::stderr_logger_st( "maintd" ), "%Y-%m-%dT%H:%M:%S.%e %l %v" );

   // In the background the folder that we were started in is left, and the files are read again later.
   for ( std::string * path :
         { &options.config, &options.stateDir, &options.runtimeDir, &options.socket, &options.pluginDir } )
      if ( !path->empty() )
         *path = std::filesystem::absolute( *path ).lexically_normal();

   if ( releaseAll )
      return releaseAllLinks( options );
   Background background;
   if ( !foreground )
      if ( const auto ended = background.begin() )
         return *ended;
   Background * const behind = foreground ? nullptr : &background;
   return supervised ? runSupervised( options, behind ) : runAgent( options, behind );
}
