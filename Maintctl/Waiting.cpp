#include "Maintctl/Waiting.h"

#include "Api/Names.h"
#include "Api/Slowness.h"
#include "Maintctl/Text.h"
#include "Maintctl/TimesText.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Maintctl {

namespace {

using Operation = Operate::Operation;

const char * wayOf( Operation operation ) {
   return operation == Operation::enter ? Api::UnitState::entering : Api::UnitState::exiting;
}

const char * goalOf( Operation operation ) {
   return operation == Operation::enter ? Api::UnitState::maintenance : Api::UnitState::normal;
}

double busiestRate( const Api::Waiting & w ) {
   return std::max( w.inBps.value_or( 0 ), w.outBps.value_or( 0 ) );
}

bool isBusy( const Api::Waiting & w ) { return w.thresholdBps && busiestRate( w ) >= *w.thresholdBps; }

/// One that is quiet only has to stay so.
Api::Slowness slownessOf( const Api::Waiting & w ) {
   std::optional< double > end;
   if ( !isBusy( w ) )
      end = std::max( 0.0, w.loadIntervalSeconds.value_or( 0 ) - w.quietSeconds.value_or( 0 ) );
   return { end, busiestRate( w ), w.thresholdBps };
}

std::string briefly( const Api::Waiting & w ) {
   if ( isBusy( w ) )
      return w.interface + " " + rateText( busiestRate( w ) );
   if ( w.quietSeconds && w.loadIntervalSeconds )
      return w.interface + " quiet " + spanText( *w.quietSeconds ) + " of " +
             spanText( *w.loadIntervalSeconds );
   return w.interface;
}

} // namespace

std::string slowestText( const Api::Explanation & explanation, std::size_t most ) {
   std::vector< Api::Waiting > waiting = explanation.waiting;
   std::stable_sort( waiting.begin(), waiting.end(), []( const Api::Waiting & a, const Api::Waiting & b ) {
      return Api::isSlower( slownessOf( a ), slownessOf( b ) );
   } );
   std::string result;
   for ( std::size_t i = 0; i < std::min( most, waiting.size() ); ++i )
      result += ( i ? ", " : "" ) + briefly( waiting[i] );
   if ( waiting.size() > most )
      result += " and " + std::to_string( waiting.size() - most ) + " more";
   return result;
}

std::string failuresText( const Api::Unit & unit ) {
   std::string result;
   for ( const Api::Stage & stage : unit.stages )
      if ( stage.state == "failed" )
         result += "; stage " + stage.name + " failed" + ( stage.failure ? ": " + *stage.failure : "" );
   return result;
}

std::string notShutText( const Api::Unit & unit ) {
   const std::string text = Api::notShutText( unit.notShut );
   return text.empty() ? "" : "; " + text;
}

Waiting::Waiting( Target target, Remote & remote, Pace & pace, Output & output, Display & display )
   : target_( std::move( target ) ),
     remote_( remote ),
     pace_( pace ),
     output_( output ),
     sight_( { Show::What::unit, target_.unit, true }, remote ) {
   if ( !output.json() && display.abilities().draws )
      live_.emplace( display, Screen::Place::below );
   remote.watchedIs( [this] {
      if ( live_ )
         live_->refresh();
   } );
}

std::string Waiting::until() {
   // Whatever is said afterwards, also of a failure, stands below the picture.
   struct Closing {
      std::optional< LivePicture > & live;
      Remote & remote;
      ~Closing() {
         remote.watchedDel();
         if ( live )
            live->close();
      }
   } const closing{ live_, remote_ };
   return untilThere();
}

std::string Waiting::untilThere() {
   lastAnswer_ = pace_.now();
   begin_ = target_.begun.value_or( lastAnswer_ );
   const double end = target_.timeout ? begin_ + target_.timeout->seconds() : HUGE_VAL;
   bool started = target_.started;
   for ( ;; ) {
      if ( const auto body = look() ) {
         const Api::Unit unit = Api::readUnit( *body );
         reportFailures( unit );
         reportOverrun( unit );
         if ( unit.state == goalOf( target_.operation ) ) {
            if ( live_ && drawn_ )
               draw( unit );
            return *body;
         }
         const bool onTheWay = unit.state == wayOf( target_.operation );
         if ( started && !onTheWay )
            throw Failure{
               ExitStatus::notMet,
               FailureCode::conditionNotMet,
               target_.unit + " is " + unit.state + " now: " +
                  ( unit.by == Api::agentName ? "the agent" : "somebody else" ) + " has decided so" +
                  ( unit.by ? " (" + *unit.by + ( unit.reason ? ": " + *unit.reason : "" ) + ")" : "" ),
               target_.unit,
               {} };
         started = started || onTheWay;
         report( unit );
      }
      const double left = end - pace_.now();
      if ( left <= 0 )
         timedOut();
      const double pause = std::min( period, left );
      if ( !( live_ ? live_->rest( pace_, pause ) : pace_.sleep( pause ) ) )
         throw Failure{
            ExitStatus::interrupted,
            FailureCode::interrupted,
            "interrupted; the operation itself goes on",
            target_.unit,
            {} };
   }
}

std::optional< std::string > Waiting::look() {
   try {
      std::string body = remote_.get( Api::Path::unit( target_.unit ) );
      lastAnswer_ = pace_.now();
      answered_ = true;
      if ( std::exchange( away_, false ) && !isDrawn() )
         output_.message( "the agent is back" );
      return body;
   } catch ( const Failure & failure ) {
      const bool mayComeBack = failure.status == ExitStatus::notReachable &&
                               ( answered_ || target_.started ) && pace_.now() - lastAnswer_ < patience;
      if ( !mayComeBack )
         throw;
      reportAway( failure );
   }
   return std::nullopt;
}

void Waiting::reportAway( const Failure & failure ) {
   if ( isDrawn() ) {
      Picture picture = sight_.picture();
      picture.stale = failure.message;
      live_->show( std::move( picture ) );
   } else if ( !away_ )
      output_.message( "the agent does not answer; it may be starting again" );
   away_ = true;
   sight_.missed();
}

void Waiting::report( const Api::Unit & unit ) {
   lastSeen_ = unit.name + " is " + unit.state +
               ( unit.state == Api::UnitState::normal ? "" : ", " + drainedText( unit.drained, unit.total ) );
   if ( output_.json() )
      return;
   if ( isDrawn() )
      return draw( unit );
   const std::string changed = unit.state + "/" + unit.stage.value_or( "" ) + "/" +
                               std::to_string( unit.drained ) + "/" + std::to_string( unit.total ) + "/" +
                               ( unit.settlingSince ? "settling" : "" );
   if ( std::exchange( reported_, changed ) != changed )
      output_.message( progressLine( unit ) );
}

void Waiting::draw( const Api::Unit & unit ) try {
   sight_.look( unit );
   live_->show( sight_.picture() );
   drawn_ = true;
   if ( sight_.fill( live_->rows() ) )
      live_->show( sight_.picture() );
} catch ( const Failure & failure ) {
   if ( failure.status == ExitStatus::interrupted )
      throw;
   // Only what is drawn depends on it; the next look finds out what has happened.
   if ( failure.status == ExitStatus::notReachable && drawn_ )
      reportAway( failure );
} catch ( const Api::Error & ) {
   // The same.
}

void Waiting::reportFailures( const Api::Unit & unit ) {
   for ( const Api::Stage & stage : unit.stages )
      if ( stage.state == "failed" && reportedFailures_.emplace( unit.generation, stage.name ).second )
         tell( unit.name + ": stage " + stage.name + " " + stage.text );
}

void Waiting::reportOverrun( const Api::Unit & unit ) {
   const bool overrun = target_.operation == Operation::enter && unit.times.overrun;
   if ( overrun && !std::exchange( reportedOverrun_, true ) )
      tell( overrunText( unit ) );
   reportedOverrun_ = reportedOverrun_ && overrun;
}

void Waiting::tell( const std::string & line ) {
   if ( isDrawn() )
      live_->above( Line( line ) );
   else
      output_.message( line );
}

std::string Waiting::progressLine( const Api::Unit & unit ) {
   std::string line = unit.name + " " + unit.state;
   if ( unit.state == Api::UnitState::normal )
      return line + ", not started yet";
   if ( const Api::Stage * const stage = Api::runningCommand( unit.stages ) )
      return line + ", stage " + stage->name +
             ( stage->limitSeconds ? ", at most " + spanText( *stage->limitSeconds ) : "" );
   if ( !unit.sentence.empty() )
      return line + ": " + unit.sentence + utcOf( unit.sentence );
   line += ": " + drainedText( unit.drained, unit.total );
   if ( unit.state != Api::UnitState::entering )
      return unit.stage ? line + ", stage " + *unit.stage : line;
   Api::Explanation explanation;
   try {
      explanation = Api::readExplanation( remote_.get( Api::Path::unit( target_.unit, "explain" ) ) );
   } catch ( const Failure & failure ) {
      // Only what is said depends on it; the next look finds out what has happened.
      if ( failure.status == ExitStatus::interrupted )
         throw;
      return line;
   }
   if ( explanation.stuck )
      return line + "; stuck: " + explanation.stuckReason.value_or( "for an unknown reason" );
   if ( explanation.settleRemainingSeconds )
      return line + "; settling, " + spanText( std::ceil( *explanation.settleRemainingSeconds ) ) + " to go";
   const std::string slowest = slowestText( explanation, 3 );
   return slowest.empty() ? line : line + "; slowest: " + slowest;
}

void Waiting::timedOut() {
   throw Failure{
      ExitStatus::notMet,
      FailureCode::timedOut,
      "timed out after " + spanText( elapsed() ) + ( lastSeen_.empty() ? "" : ": " + lastSeen_ ),
      target_.unit,
      {} };
}

} // namespace Maintctl
