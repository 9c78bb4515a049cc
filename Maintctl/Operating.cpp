#include "Maintctl/Operating.h"

#include "Api/Names.h"
#include "Api/Shapes.h"
#include "Maintctl/Arrival.h"
#include "Maintctl/Failure.h"
#include "Maintctl/Json.h"
#include "Maintctl/Table.h"
#include "Maintctl/Text.h"
#include "Maintctl/Timeline.h"
#include "Maintctl/Waiting.h"

namespace Maintctl {

namespace {

namespace Key = Api::Key;
using Operation = Operate::Operation;

std::string acceptedText( const Api::Accepted & accepted, const std::string & done ) {
   return accepted.unit + " is " + stateText( accepted.state ) + ( done.empty() ? "" : ": " + done ) +
          doneText(
             accepted.changed, accepted.operation, accepted.repeated,
             ", generation " + std::to_string( accepted.generation ) );
}

/// An object of JSON with the name of the unit in front.
std::string withUnit( const std::string & unit, const std::string & object ) {
   const std::string name = JsonObject().add( "unit", unit ).text();
   return name.substr( 0, name.size() - 1 ) + "," + object.substr( 1 );
}

} // namespace

std::string doneText(
   bool changed, const std::optional< std::uint64_t > & operation, bool repeated,
   const std::string & between ) {
   return ( changed ? "" : " already" ) + between +
          ( operation ? ", operation " + std::to_string( *operation ) : "" ) +
          ( repeated ? "; this was asked for before" : "" );
}

ExitStatus worseOf( ExitStatus a, ExitStatus b ) {
   const ExitStatus worstFirst[] = { ExitStatus::interrupted, ExitStatus::notReachable, ExitStatus::usage,
                                     ExitStatus::failed,      ExitStatus::needsForce,   ExitStatus::notMet };
   for ( const ExitStatus status : worstFirst )
      if ( a == status || b == status )
         return status;
   return ExitStatus::done;
}

std::string Operating::request( const std::string & unit ) const {
   JsonObject request;
   if ( command_.reason )
      request.add( Key::reason, *command_.reason );
   if ( command_.force )
      request.add( Key::force, true );
   if ( !session_.empty() )
      request.add( Key::session, session_ );
   const EnterTimes & times = command_.times;
   for ( const auto & [key, text] :
         { std::pair( Key::deadline, &times.deadline ), std::pair( Key::onOverrun, &times.onOverrun ),
           std::pair( Key::revertAfter, &times.revertAfter ) } )
      if ( *text )
         request.add( key, **text );
   // Others see it with the unit; to wait for no time at all says nothing of the operation.
   if ( command_.timeout && command_.timeout->seconds() > 0 )
      request.add( Key::timeout, double( command_.timeout->seconds() ) );
   // A key belongs to one request.
   if ( command_.requestKey )
      request.add(
         Key::requestKey,
         command_.units.size() > 1 ? *command_.requestKey + ":" + unit : *command_.requestKey );
   if ( !command_.with.empty() )
      request.add( Key::with, command_.with );
   return request.text();
}

template < class Text >
void Operating::tellOf( Unit & unit, Text text ) const {
   if ( output_.json() )
      unit.answer = onOneLine( unit.answer ); // throws if it is none
   else
      unit.line = text();
}

std::string Operating::doneAtOnce( const Api::Accepted & accepted ) const {
   const EnterTimes & times = command_.times;
   if ( !( times.deadline || times.revertAfter ) || !accepted.changed || !accepted.operation )
      return "";
   try {
      const Api::Operation operation =
         Api::readOperation( remote_.get( Api::Path::operation( *accepted.operation ) ) );
      return operation.state == "done" ? operation.text : "";
   } catch ( const Failure & failure ) {
      // It has been taken, whatever else can be said of it.
      if ( failure.status == ExitStatus::interrupted )
         throw;
   } catch ( const Api::Error & ) {
      // The same.
   }
   return "";
}

void Operating::ask( Unit & unit ) {
   unit.answer = remote_.post(
      Api::Path::unit( unit.name, command_.operation == Operation::enter ? "enter" : "exit" ),
      request( unit.name ) );
   const Api::Accepted accepted = Api::readAccepted( unit.answer );
   unit.operation = accepted.operation;
   tellOf( unit, [&] { return acceptedText( accepted, doneAtOnce( accepted ) ); } );
   unit.taken = true;
}

void Operating::wait( Unit & unit, double begun ) {
   // An exit of a unit that is normal, and an enter of one that is under maintenance, change nothing and are there.
   Waiting waiting(
      { unit.name, command_.operation, command_.timeout, true, begun }, remote_, world_.pace, output_,
      world_.messages );
   try {
      unit.answer = waiting.until();
   } catch ( Failure & failure ) {
      // It goes on, and this is how to follow it.
      if ( !failure.operation )
         failure.operation = unit.operation;
      throw;
   }
   const double seconds = waiting.elapsed();
   tellOf( unit, [&] { return arrivalText( unit.answer, command_.operation, seconds, remote_ ); } );
}

template < class Step >
bool Operating::attempt( Unit & unit, Step step ) {
   Failure failure;
   try {
      step( unit );
      return true;
   } catch ( Failure & thrown ) {
      failure = std::move( thrown );
   } catch ( const Api::Error & error ) {
      failure = { ExitStatus::failed, stringValue( error.code ), error.message, error.where, {} };
   }
   unit.taken = false;
   worst_ = worseOf( worst_, failure.status );
   if ( output_.json() )
      unit.failure = failureJson( failure );
   else
      output_.failure( failure );
   return failure.status != ExitStatus::interrupted;
}

void Operating::several() {
   std::vector< Unit > units;
   for ( const std::string & name : command_.units )
      units.push_back( { name, false, "", "", "" } );
   const double begun = world_.pace.now();
   const auto tell = [&]( const Unit & unit ) {
      if ( unit.taken && !output_.json() )
         output_.text( printable( unit.line ) + "\n" );
   };
   bool goesOn = true;
   for ( Unit & unit : units ) {
      goesOn = goesOn && attempt( unit, [&]( Unit & of ) { ask( of ); } );
      if ( !command_.wait )
         tell( unit );
   }
   if ( command_.wait )
      for ( Unit & unit : units )
         if ( unit.taken ) {
            // What nobody waits for any more has been asked for all the same.
            goesOn = goesOn && attempt( unit, [&]( Unit & of ) { wait( of, begun ); } );
            tell( unit );
         }
   if ( output_.json() ) {
      std::string list;
      for ( const Unit & unit : units )
         if ( !unit.failure.empty() || !unit.answer.empty() )
            list += ( list.empty() ? "" : "," ) +
                    ( unit.failure.empty() ? unit.answer : withUnit( unit.name, unit.failure ) );
      output_.document( "[" + list + "]" );
   }
   if ( worst_ != ExitStatus::done )
      throw Failure{ worst_, "", "", "", {} };
}

void Operating::run() {
   if ( command_.operation == Operation::enter )
      session_ = world_.sessionUnless( command_.session );
   if ( command_.units.size() != 1 )
      return several();
   Unit unit{ command_.units.front(), false, "", "", "" };
   const double begun = world_.pace.now();
   ask( unit );
   if ( command_.wait )
      wait( unit, begun );
   if ( output_.json() )
      output_.document( unit.answer );
   else
      output_.text( printable( unit.line ) + "\n" );
}

// ---- what has become of them

std::string pairsText( const std::map< std::string, std::string > & pairs ) {
   std::string result;
   for ( const auto & [key, value] : pairs )
      result += ( result.empty() ? "" : ", " ) + key + "=" + value;
   return result;
}

std::string operationsText( const std::vector< Api::Operation > & operations, std::size_t room ) {
   if ( operations.empty() )
      return "There are no operations.\n";
   Table table(
      { { "ID", Table::Align::right },
        { "WHAT" },
        { "OF" },
        { "STATE" },
        { "BEGUN (UTC)" },
        { "TOOK", Table::Align::right },
        { "BY" },
        { "REASON" },
        { "WITH" } } );
   for ( const Api::Operation & o : operations )
      table.row(
         { std::to_string( o.id ), o.kind, o.unit.empty() ? o.interface.value_or( "" ) : o.unit, o.state,
           o.begun ? dayText( *o.begun ) : nothing,
           o.begun && o.ended ? spanText( *o.ended - *o.begun ) : nothing, o.by.value_or( "" ),
           o.reason.value_or( "" ), pairsText( o.with ) } );
   return table.text( 0, room );
}

std::string operationText( const Api::Operation & o, std::size_t room ) {
   Sheet sheet;
   sheet.line( "Operation", std::to_string( o.id ) );
   sheet.line( "What", o.kind );
   if ( !o.unit.empty() )
      sheet.line( "Unit", o.unit );
   if ( o.interface )
      sheet.line( "Interface", *o.interface );
   sheet.line( "State", o.state + ( o.text.empty() ? "" : ": " + o.text ) );
   sheet.line( "By", o.by.value_or( "" ) );
   sheet.line( "Reason", o.reason.value_or( "" ) );
   sheet.line( "With", pairsText( o.with ) );
   sheet.line( "Request key", o.requestKey.value_or( "" ) );
   sheet.line( "Begun", o.begun ? dayText( *o.begun ) + " UTC" : "" );
   sheet.line( "Ended", o.ended ? dayText( *o.ended ) + " UTC" : "" );
   return sheet.text( room );
}

} // namespace Maintctl
