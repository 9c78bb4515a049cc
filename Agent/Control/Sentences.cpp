#include "Agent/Control/Sentences.h"

#include "Agent/Control/Shapes.h"
#include "Api/NotShut.h"
#include "Api/Slowness.h"
#include "Api/Utf8.h"
#include "Api/Values.h"
#include "Config/Stages.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

constexpr std::size_t mostNamed = 3;
/// Characters of a text that comes from elsewhere.
constexpr std::size_t mostOfOthers = 120;
/// Seconds without a sample after which nobody knows what a drained interface carries: two have been left out of those
/// that are taken every 10 s.
constexpr double unwatchedAfter = 31;
/// Seconds after which a time of day needs its date.
constexpr double dateAfter = 20 * 3600;

/// "812 kbit/s"
std::string bitRate( double bps ) {
   std::string text = Api::rateText( bps );
   return text.replace( text.size() - 3, 3, "bit/s" );
}

std::string bitRate( const std::optional< double > & bps ) { return bps ? bitRate( *bps ) : "unknown rate"; }

/// "about 40 s": as exact as one can be.
std::string about( double seconds ) {
   const auto text = []( double value, const char * unit ) {
      return "about " + std::to_string( std::lround( value ) ) + unit;
   };
   if ( seconds < 1 )
      return "any moment";
   if ( seconds <= 20 )
      return text( seconds, " s" );
   if ( seconds < 100 )
      return text( 5 * std::round( seconds / 5 ), " s" );
   if ( seconds < 100 * 60 )
      return text( seconds / 60, " min" );
   return seconds < 48 * 3600 ? text( seconds / 3600, " h" ) : text( seconds / 86400, " days" );
}

/// "14:02", with the date if that is not plain.
std::string clockTime( double time, const ControlCommands & commands ) {
   const std::string text = Api::timeText( commands.wallTime( time ) );
   const std::string hour = text.substr( 11, 5 );
   return commands.now() - time < dateAfter ? hour : text.substr( 0, 10 ) + " " + hour;
}

std::string since( double time, const ControlCommands & commands ) {
   return time > 0 ? " since " + clockTime( time, commands ) : "";
}

std::string shortened( const std::string & text ) {
   return text.size() <= mostOfOthers ? text : std::string( Api::beginning( text, mostOfOthers ) ) + "...";
}

bool isAbove( const ReasonFacts & facts ) {
   return facts.rate && facts.threshold && *facts.rate >= *facts.threshold;
}

bool isBack( const ReasonFacts & facts ) {
   // What was seen last is no news where nothing is seen any more.
   return facts.reason == Reason::spike && isAbove( facts ) && !facts.unwatched;
}

bool isQuiet( const ReasonFacts & facts ) {
   return facts.rate && facts.threshold && *facts.rate < *facts.threshold;
}

std::string quietText( const ReasonFacts & facts ) {
   const auto whole = []( double seconds ) { return std::to_string( std::lround( seconds ) ); };
   return whole( std::min( facts.quiet, facts.loadInterval.value_or( facts.quiet ) ) ) + " of " +
          whole( facts.loadInterval.value_or( 0 ) ) + " s quiet";
}

std::string aboveText( const ReasonFacts & facts, const ControlCommands & commands ) {
   if ( !facts.rate )
      return facts.sampled ? "its rate cannot be told" : "waits for its first rate";
   if ( !facts.threshold )
      return bitRate( facts.rate ) + ", no profile";
   if ( !isAbove( facts ) )
      return bitRate( facts.rate ) + ", " + quietText( facts );
   if ( facts.eta )
      return bitRate( facts.rate ) + ", " + about( *facts.eta - commands.now() );
   return bitRate( facts.rate ) + ( facts.trend == Trend::rising ? ", rising" : "" ) + ", threshold " +
          bitRate( facts.threshold );
}

/// Of one that is said to stall, also if it does not any more.
std::string stalledText( const ReasonFacts & facts, const ControlCommands & commands ) {
   if ( isQuiet( facts ) )
      return quietText( facts );
   if ( !facts.rate || facts.eta )
      return aboveText( facts, commands );
   return "stalled at " + bitRate( facts.rate ) + since( facts.since, commands );
}

std::string oscillatingText( const ReasonFacts & facts, const ControlCommands & commands ) {
   const std::string text =
      "oscillating about " + bitRate( facts.threshold ) + since( facts.since, commands );
   if ( isQuiet( facts ) )
      return text + ", " + quietText( facts );
   return facts.rate ? text + ", now " + bitRate( facts.rate ) : text;
}

std::string unwatchedText( const ReasonFacts & facts, const ControlCommands & commands ) {
   return facts.unwatched ? ", not watched" + since( *facts.unwatched, commands ) : "";
}

std::string spikeText( const ReasonFacts & facts, const ControlCommands & commands ) {
   if ( isBack( facts ) )
      return bitRate( facts.rate ) + ", traffic is back" + since( facts.since, commands );
   return ( isAbove( facts ) ? "" : "drained again, " ) + std::string( "traffic was back at " ) +
          clockTime( facts.since, commands ) + unwatchedText( facts, commands );
}

/// Whoever is told that it is shut pulls its cable.
std::string notShutText( const ReasonFacts & facts ) {
   return facts.shutProblem.empty() ? "" : "not shut: " + shortened( facts.shutProblem );
}

} // namespace

bool isWaitedFor( const ReasonFacts & facts ) {
   switch ( facts.reason ) {
   case Reason::drained:
   case Reason::shut:
   case Reason::spike:
      return false;
   default:
      return true;
   }
}

std::optional< ReasonFacts >
reasonFacts( const ControlModel & model, const Wire::IntfId & intf, double now ) {
   const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
   const auto * insight = record ? model.insightDir->intf( intf ) : nullptr;
   if ( !insight )
      return std::nullopt;
   ReasonFacts facts;
   facts.name = intf.name();
   facts.reason = insight->reason();
   facts.since = insight->since();
   facts.trend = insight->trend();
   facts.quiet = static_cast< double >( record->numConsecutiveDrainedSamples() ) * secondsPerSample;
   const double in = record->curRates().inBitsRate, out = record->curRates().outBitsRate;
   facts.sampled = record->totalSamples() > 0;
   if ( record->lastSampleTime() > 0 && std::isfinite( in ) && std::isfinite( out ) )
      facts.rate = std::max( in, out );
   const auto * profile = model.intfProfileStatusDir->status( record->profileName() );
   if ( profile ) {
      facts.threshold = profile->drainWatchThresholdInKbps() * 1000;
      facts.loadInterval = profile->drainWatchLoadInterval();
   }
   const bool watched = facts.reason == Reason::drained || facts.reason == Reason::spike;
   if ( const double last = record->lastSampleTime(); watched && last > 0 && now - last >= unwatchedAfter )
      facts.unwatched = last;
   if ( !isWaitedFor( facts ) || facts.reason == Reason::stopped )
      return facts;
   if ( profile && profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() ) )
      facts.shutdownAt = record->startTime() + profile->shutdownMaxDelay();
   if ( insight->eta() > 0 )
      facts.eta =
         std::min( insight->eta(), facts.shutdownAt.value_or( std::numeric_limits< double >::infinity() ) );
   return facts;
}

std::string reasonText( const ReasonFacts & facts, const ControlCommands & commands ) {
   switch ( facts.reason ) {
   case Reason::aboveThreshold:
      return aboveText( facts, commands );
   case Reason::timing:
      return isAbove( facts ) ? aboveText( facts, commands ) : quietText( facts );
   case Reason::stalled:
      return stalledText( facts, commands );
   case Reason::oscillating:
      return oscillatingText( facts, commands );
   case Reason::starved:
      return "no fresh counters" + since( facts.since, commands );
   case Reason::drained:
      return "drained" + since( facts.since, commands ) + unwatchedText( facts, commands );
   case Reason::shut:
      return facts.shutProblem.empty() ? "shut" + since( facts.since, commands ) : notShutText( facts );
   case Reason::spike:
      return spikeText( facts, commands ) + ( facts.shutProblem.empty() ? "" : "; " + notShutText( facts ) );
   case Reason::stopped:
      return "not monitored any more" + since( facts.since, commands );
   }
   return stringValue( facts.reason );
}

// ---- units

namespace {

/// Parts of a sentence.
class Parts {
 public:
   void add( const std::string & part ) {
      if ( !part.empty() )
         text_ += ( text_.empty() ? "" : "; " ) + part;
   }
   const std::string & text() const { return text_; }

 private:
   std::string text_;
};

Api::Slowness slownessOf( const ReasonFacts & facts ) { return { facts.eta, facts.rate, facts.threshold }; }

bool isSlower( const ReasonFacts * a, const ReasonFacts * b ) {
   return Api::isSlower( slownessOf( *a ), slownessOf( *b ) );
}

/// The slowest first.
std::vector< const ReasonFacts * > waitedFor( const UnitFacts & facts ) {
   std::vector< const ReasonFacts * > result;
   for ( const ReasonFacts & intf : facts.interfaces )
      if ( isWaitedFor( intf ) )
         result.push_back( &intf );
   std::stable_sort( result.begin(), result.end(), isSlower );
   return result;
}

std::string drainedText( const ControlCommands::Progress & progress ) {
   return progress.total == 0
             ? "no interface to wait for"
             : std::to_string( progress.drained ) + " of " + std::to_string( progress.total ) + " drained";
}

/// The next shutdown of an interface that will not have drained by then. Nothing is shut by time where there are no
/// fresh counters: no timer runs.
std::string shutdownText( const std::vector< const ReasonFacts * > & waiting, double now ) {
   const ReasonFacts * first = nullptr;
   std::size_t more = 0;
   for ( const ReasonFacts * intf : waiting )
      if (
         intf->shutdownAt && intf->reason != Reason::starved &&
         ( !intf->eta || *intf->eta >= *intf->shutdownAt ) ) {
         more += first != nullptr;
         if ( !first || *intf->shutdownAt < *first->shutdownAt )
            first = intf;
      }
   if ( !first )
      return "";
   const double left = std::ceil( *first->shutdownAt - now );
   return "forced shutdown of " + first->name + ( left > 0 ? " in " + Api::spanText( left ) : " now" ) +
          ( more ? ", and of " + std::to_string( more ) + " more" : "" );
}

void addWaiting( Parts & parts, const UnitFacts & facts, const ControlCommands & commands ) {
   const auto waiting = waitedFor( facts );
   // The slowest, in the order in which they will end.
   auto named = waiting;
   named.resize( std::min( mostNamed, named.size() ) );
   std::stable_sort( named.begin(), named.end(), []( const ReasonFacts * first, const ReasonFacts * then ) {
      return isSlower( then, first );
   } );
   for ( const ReasonFacts * intf : named )
      parts.add( intf->name + " " + reasonText( *intf, commands ) );
   if ( waiting.size() > named.size() )
      parts.add( "and " + std::to_string( waiting.size() - named.size() ) + " more" );
   if ( facts.progress.blocked.empty() )
      parts.add( shutdownText( waiting, commands.now() ) );
}

void addNotShut( Parts & parts, const UnitFacts & facts ) {
   std::vector< Api::NotShut > notShut;
   for ( const ReasonFacts & intf : facts.interfaces )
      if ( !intf.shutProblem.empty() )
         notShut.push_back( { intf.name, shortened( intf.shutProblem ) } );
   parts.add( Api::notShutText( notShut ) );
}

/// "et1, et2 and 3 more"
std::string listed( const std::vector< std::string > & names ) {
   std::string text;
   for ( std::size_t i = 0; i < std::min( mostNamed, names.size() ); ++i )
      text += ( i ? ", " : "" ) + names[i];
   return names.size() > mostNamed ? text + " and " + std::to_string( names.size() - mostNamed ) + " more"
                                   : text;
}

/// What the present stage does, if a command carries it out or nothing does yet; empty: it waits for traffic to leave, or
/// for links to come back.
std::string stageInWords( const UnitFacts & facts, const ControlCommands & commands ) {
   const auto & progress = facts.progress;
   if ( progress.stage.empty() )
      return progress.busy ? "waits until an earlier command has ended" : "between two stages";
   if ( progress.stage == Config::drainwatchStage )
      return "";
   for ( const auto & stage : progress.stages ) {
      if ( stage.name != progress.stage )
         continue;
      const std::string name = "stage " + stage.name + " ";
      if ( stage.state != "running" || stage.waits || !stage.waitsFor.empty() )
         return name + shortened( stageText( stage, facts.state ) );
      std::string text = name + "runs for " + Api::spanText( commands.now() - stage.since );
      if ( stage.limit > 0 )
         text += " of at most " + Api::spanText( stage.limit );
      return text;
   }
   return "stage " + progress.stage;
}

std::string enteringText( const UnitFacts & facts, const ControlCommands & commands ) {
   const auto & progress = facts.progress;
   Parts parts;
   parts.add( stageInWords( facts, commands ) );
   const bool drains = progress.stage == Config::drainwatchStage;
   if ( drains || progress.total > 0 )
      parts.add( drainedText( progress ) );
   addNotShut( parts, facts );
   if ( progress.settlingSince ) {
      const double left = std::ceil( *progress.settlingSince + progress.settleTime - commands.now() );
      parts.add( "settling, " + Api::spanText( left ) + " left" );
   }
   addWaiting( parts, facts, commands );
   if ( ( drains || progress.stage.empty() ) && !progress.blocked.empty() )
      parts.add( "held: " + shortened( progress.blocked ) );
   else if ( drains && !facts.uncounted.empty() )
      parts.add( "held: nobody can say what " + listed( facts.uncounted ) + " carries" );
   else if ( !facts.stuck.empty() )
      parts.add( "stuck: " + shortened( facts.stuck ) );
   parts.add( timesText( facts, commands ) );
   return parts.text();
}

std::string lettingGoText( const UnitFacts & facts ) {
   for ( const auto & stage : facts.progress.stages )
      if ( stage.name == Config::drainwatchStage )
         return stageText( stage, facts.state );
   return "lets go of the links";
}

std::string maintenanceText( const UnitFacts & facts, const ControlCommands & commands ) {
   Parts parts;
   parts.add( "in maintenance" + since( facts.since, commands ) );
   if ( facts.progress.total > 0 )
      parts.add( drainedText( facts.progress ) );
   addNotShut( parts, facts );
   const bool blind = !facts.progress.blocked.empty();
   std::vector< std::string > back, was, unwatched;
   for ( const ReasonFacts & intf : facts.interfaces ) {
      if ( intf.reason == Reason::spike && isBack( intf ) && !blind )
         back.push_back( intf.name + " (" + bitRate( intf.rate ) + ")" );
      else if ( intf.reason == Reason::spike )
         was.push_back( intf.name );
      if ( intf.unwatched )
         unwatched.push_back( intf.name );
   }
   if ( !back.empty() )
      parts.add( "traffic is back on " + listed( back ) );
   if ( !was.empty() )
      parts.add( "traffic was back on " + listed( was ) );
   addWaiting( parts, facts, commands );
   if ( blind )
      parts.add( "not watched: " + shortened( facts.progress.blocked ) );
   else if ( !unwatched.empty() )
      parts.add( "not watched: " + listed( unwatched ) );
   parts.add( timesText( facts, commands ) );
   return parts.text();
}

} // namespace

std::string sentence( const UnitFacts & facts, const ControlCommands & commands ) {
   switch ( facts.state ) {
   case UnitState::enterInProgress:
      return enteringText( facts, commands );
   case UnitState::maintenance:
      return maintenanceText( facts, commands );
   case UnitState::exitInProgress: {
      const std::string stage = stageInWords( facts, commands );
      return "going back; " + ( stage.empty() ? lettingGoText( facts ) : stage ) +
             ( facts.stuck.empty() ? "" : "; stuck: " + shortened( facts.stuck ) );
   }
   default:
      return "normal" + since( facts.since, commands );
   }
}

std::optional< double > unitEta( const UnitFacts & facts ) {
   const auto & progress = facts.progress;
   if ( facts.state != UnitState::enterInProgress || progress.stage != Config::drainwatchStage )
      return std::nullopt;
   if ( progress.settlingSince )
      return *progress.settlingSince + progress.settleTime;
   if ( !progress.blocked.empty() || !facts.uncounted.empty() )
      return std::nullopt;
   std::optional< double > latest;
   for ( const ReasonFacts & intf : facts.interfaces )
      if ( isWaitedFor( intf ) ) {
         if ( !intf.eta )
            return std::nullopt;
         latest = std::max( latest.value_or( 0 ), *intf.eta + progress.settleTime );
      }
   return latest;
}

} // namespace Agent
