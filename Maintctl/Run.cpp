#include "Maintctl/Run.h"

#include "Api/Names.h"
#include "Api/Shapes.h"
#include "Api/Values.h"
#include "Config/Load.h"
#include "Maintctl/Arrival.h"
#include "Maintctl/Following.h"
#include "Maintctl/Json.h"
#include "Maintctl/Operating.h"
#include "Maintctl/PlanText.h"
#include "Maintctl/Remote.h"
#include "Maintctl/Report.h"
#include "Maintctl/Room.h"
#include "Maintctl/Show.h"
#include "Maintctl/ShowFastLog.h"
#include "Maintctl/Text.h"
#include "Maintctl/Waiting.h"
#include "Maintctl/Watching.h"

namespace Maintctl {

std::string World::sessionUnless( const std::optional< std::string > & said ) const {
   if ( !said && !session.note.empty() )
      output.message( "note: " + session.note );
   return said.value_or( session.address );
}

namespace {

namespace Key = Api::Key;
namespace Path = Api::Path;

JsonObject requestOf( const Note & note ) {
   JsonObject request;
   if ( note.reason )
      request.add( Key::reason, *note.reason );
   if ( note.requestKey )
      request.add( Key::requestKey, *note.requestKey );
   if ( !note.with.empty() )
      request.add( Key::with, note.with );
   return request;
}

/// Carries out one command; one operation for each. They throw Failure, or Api::Error for an answer that makes no
/// sense.
class Runner {
 public:
   Runner( const Invocation & invocation, World & world )
      : invocation_( invocation ), world_( world ), output_( world.output ), remote_( world.client ) {}

   void operator()( const Operate & command ) { Operating( command, remote_, world_ ).run(); }

   void operator()( const ShowOperations & command ) {
      show( Path::operationsOf( command.unit, command.state, command.limit ), [this]( auto & body ) {
         return operationsText( Api::readOperations( body ), room() );
      } );
   }

   void operator()( const ShowOperation & command ) {
      show( Path::operation( command.id ), [this]( auto & body ) {
         return operationText( Api::readOperation( body ), room() );
      } );
   }

   void operator()( const Plan & command ) {
      show( Path::planOf( command.unit, world_.sessionUnless( command.session ) ), [this]( auto & body ) {
         return planText( Api::readPlan( body ), room() );
      } );
   }

   void operator()( const Wait & command ) {
      waitFor( { command.unit, command.until, command.timeout, false } );
   }

   void operator()( const Show & command ) {
      using What = Show::What;
      if ( command.watch )
         return Watching( command, remote_, world_.pace, output_, world_.data ).untilInterrupted();
      switch ( command.what ) {
      case What::units:
         return show( Path::units, [this]( auto & body ) {
            return unitsText( Api::readUnits( body ), remote_.clock(), room() );
         } );
      case What::unit:
         return show( Path::unit( command.name ), [this]( auto & body ) {
            return unitText( Api::readUnit( body ), remote_.clock(), room() );
         } );
      case What::interfaces: {
         const std::string all = command.name.empty() ? Path::interfaces : Path::interfacesOf( command.name );
         const std::string path = output_.json() ? all : Path::withFields( all, interfacesTextFields );
         return show( path, [this]( auto & body ) {
            return interfacesText( Api::readInterfaces( body ), remote_.clock(), room() );
         } );
      }
      case What::interface:
         return show( Path::interface( command.name ), [this]( auto & body ) {
            return interfaceText( Api::readInterface( body ), remote_.clock(), room() );
         } );
      case What::profiles:
         return show( Path::profiles, [this]( auto & body ) {
            return profilesText( Api::readProfiles( body ), room() );
         } );
      case What::groups:
         return show(
            Path::groups, [this]( auto & body ) { return groupsText( Api::readGroups( body ), room() ); } );
      case What::counters:
         return show(
            Path::counters, []( auto & body ) { return countersText( Api::readCounters( body ) ); } );
      case What::agent:
         return show(
            Path::agent, [this]( auto & body ) { return agentText( Api::readAgent( body ), room() ); } );
      }
   }

   void operator()( const Explain & command ) {
      show( Path::unit( command.unit, "explain" ), [this]( auto & body ) {
         return explanationText( Api::readExplanation( body ), remote_.clock(), room() );
      } );
   }

   void operator()( const ShowHistory & command ) {
      show( Path::historyOf( command.unit, command.limit ), [this]( auto & body ) {
         return historyText( Api::readMaintenances( body ), room() );
      } );
   }

   void operator()( const Report & command ) {
      const std::string body = remote_.get( Path::historyRecord( command.id ) );
      if ( command.csv )
         return output_.text( reportCsv( Api::readMaintenanceRecord( body ) ) );
      present( body, [&] {
         return reportText( Api::readMaintenanceRecord( body ), world_.data.abilities().utf8, room() );
      } );
   }

   void operator()( const Events & command ) {
      if ( command.follow && command.after )
         Following( remote_, world_.pace, output_, world_.data ).follow( {}, *command.after );
      constexpr std::uint64_t all = 4096, some = 20;
      const std::string body = remote_.get(
         command.after ? Path::recentEventsAfter( *command.after, command.last.value_or( all ) )
                       : Path::recentEventsLast( command.last.value_or( some ) ) );
      if ( command.follow ) {
         const Api::RecentEvents recent = Api::readRecentEvents( body );
         Following( remote_, world_.pace, output_, world_.data ).follow( recent.events, recent.last );
      }
      present( body, [&] {
         std::string text;
         for ( const Api::Event & event : Api::readRecentEvents( body ).events )
            text += eventLine( event, room() );
         return text.empty() ? "nothing has happened\n" : text;
      } );
   }

   void operator()( const Dump & ) {
      const std::string text = remote_.get( Path::dump );
      if ( output_.json() )
         output_.document( JsonObject().add( "text", text ).text() );
      else
         output_.text( text.empty() || text.ends_with( '\n' ) ? text : text + "\n" );
   }

   void operator()( const ShowFastLog & command ) {
      showFastLog( command, command.file.value_or( fastLogFile() ), output_ );
   }

   void operator()( const Trace & command ) {
      std::string body;
      for ( const auto & [name, level] : command.levels )
         body = remote_.post(
            Path::trace, JsonObject().add( Key::name, name ).add( Key::level, double( level ) ).text() );
      if ( command.levels.empty() )
         body = remote_.get( Path::trace );
      present( body, [&] { return traceLevelsText( Api::readTraceLevels( body ) ); } );
   }

   void operator()( const Release & command ) {
      JsonObject request = requestOf( command.note );
      request.add( Key::force, command.force );
      const std::string body = remote_.post( Path::interfaceRelease( command.interface ), request.text() );
      say( body, [&] {
         const Api::Released released = Api::readReleased( body );
         return released.interface + " is released" +
                doneText( released.changed, released.operation, released.repeated );
      } );
   }

   void operator()( const Validate & command ) {
      const Config::Result result = Config::load( command.file, world_.files );
      // What is wrong is what was asked for, and so on stdout.
      const auto placesOf = []( const std::vector< Config::Error > & errors ) {
         std::vector< Api::FileError > places;
         for ( const Config::Error & error : errors )
            places.push_back( { error.file, error.line, error.column, error.message } );
         return places;
      };
      if ( result && output_.json() )
         return output_.document( validJson( command.file, placesOf( result.warnings ) ) );
      if ( result ) {
         for ( const Config::Error & warning : result.warnings )
            output_.text( printable( warning.warningText() ) + "\n" );
         const std::size_t count = result.warnings.size();
         return output_.message(
            command.file + ": no errors" + ( count > 0 ? ", " + countText( count, "warning" ) : "" ) );
      }
      Failure failure{
         ExitStatus::failed,
         FailureCode::invalid,
         command.file + ": " + countText( result.errors.size(), "error" ),
         command.file,
         {} };
      if ( output_.json() )
         failure.fileErrors = placesOf( result.errors );
      else
         for ( const Config::Error & error : result.errors )
            output_.text( printable( error.text() ) + "\n" );
      throw failure;
   }

   void operator()( const Reload & command ) {
      const std::string body = remote_.post( Path::reload, requestOf( command.note ).text() );
      present( body, [&] {
         std::string text;
         const Api::Reloaded reloaded = Api::readReloaded( body );
         for ( const std::string & change : reloaded.changes )
            text += printable( change ) + "\n";
         // Asked for again, the changes are those of the first time, and not told again.
         if ( reloaded.operation || reloaded.repeated )
            return text + "the file is applied" +
                   doneText( reloaded.changed, reloaded.operation, reloaded.repeated ) + "\n";
         return text.empty() ? "nothing has changed\n" : text;
      } );
   }

   void operator()( const SimulatedTraffic & command ) {
      JsonObject request;
      request.add( Key::interface, command.interface )
         .add( Key::inBps, double( command.in.bps() ) )
         .add( Key::outBps, double( command.out.bps() ) );
      if ( command.ramp )
         request.add( Key::rampSeconds, double( command.ramp->seconds() ) );
      simulate( Path::simulatedTraffic, request );
   }

   void operator()( const SimulatedLink & command ) {
      simulate(
         Path::simulatedLink,
         JsonObject().add( Key::interface, command.interface ).add( Key::up, command.up ) );
   }

   void operator()( const SimulatedAdvance & command ) {
      simulate( Path::simulatedAdvance, JsonObject().add( Key::seconds, double( command.by.seconds() ) ) );
   }

 private:
   /// Where the agent says that it writes; without an agent, where it would beside its socket.
   std::string fastLogFile() {
      try {
         if ( std::string file = Api::readAgent( remote_.get( Path::agent ) ).fastLog; !file.empty() )
            return file;
      } catch ( const Failure & failure ) {
         if ( failure.status == ExitStatus::interrupted )
            throw;
      } catch ( const Api::Error & ) {
      }
      const std::size_t slash = invocation_.socket.rfind( '/' );
      return ( slash == std::string::npos ? "" : invocation_.socket.substr( 0, slash + 1 ) ) + "fastlog";
   }

   std::size_t room() { return roomOn( world_.data ); }

   /// The answer as it came, or the text that is made of it.
   template < class Text >
   void present( const std::string & body, Text text ) {
      if ( output_.json() )
         output_.document( body );
      else
         output_.text( text() );
   }

   /// The same for one line.
   template < class Text >
   void say( const std::string & body, Text text ) {
      present( body, [&] { return printable( text() ) + "\n"; } );
   }

   template < class Text >
   void show( const std::string & path, Text text ) {
      const std::string body = remote_.get( path );
      present( body, [&] { return text( body ); } );
   }

   void simulate( const char * path, const JsonObject & request ) {
      const std::string body = remote_.post( path, request.text() );
      say( body, [&] {
         const auto time = Api::readTime( body );
         return "the switch's time is " + ( time ? Api::timeText( *time ) : std::string( nothing ) );
      } );
   }

   void waitFor( Waiting::Target target ) {
      const Operate::Operation operation = target.operation;
      Waiting waiting( std::move( target ), remote_, world_.pace, output_, world_.messages );
      const std::string body = waiting.until();
      const double seconds = waiting.elapsed();
      say( body, [&] { return arrivalText( body, operation, seconds, remote_ ); } );
   }

   const Invocation & invocation_;
   World & world_;
   Output & output_;
   Remote remote_;
};

} // namespace

ExitStatus run( const Invocation & invocation, World & world ) try {
   std::visit( Runner( invocation, world ), invocation.command );
   return ExitStatus::done;
} catch ( const Failure & failure ) {
   if ( !failure.message.empty() )
      world.output.failure( failure );
   return failure.status;
} catch ( const Api::Error & error ) {
   world.output.failure( { ExitStatus::failed, stringValue( error.code ), error.message, error.where, {} } );
   return ExitStatus::failed;
}

} // namespace Maintctl
