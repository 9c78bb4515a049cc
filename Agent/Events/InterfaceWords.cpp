#include "Agent/Events/InterfaceWords.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <sstream>

namespace Agent::InterfaceWords {

using nlohmann::json;

std::string joined( const std::set< std::string > & names ) {
   std::string result;
   for ( const std::string & name : names )
      result += ( result.empty() ? "" : " " ) + name;
   return result;
}

std::set< std::string > split( const std::string & names ) {
   std::istringstream in( names );
   std::set< std::string > result;
   for ( std::string name; in >> name; )
      result.insert( name );
   return result;
}

std::string list( const std::set< std::string > & units ) {
   if ( units.empty() )
      return "no unit";
   std::string result;
   for ( auto it = units.begin(); it != units.end(); ++it )
      result += ( it == units.begin() ? "" : std::next( it ) == units.end() ? " and " : ", " ) + *it;
   return result;
}

json orNull( const std::string & text ) { return text.empty() ? json( nullptr ) : json( text ); }

std::string stateSentence( const std::string & name, const std::string & state ) {
   if ( state == "enter-maint" )
      return name + " is watched: it waits for its traffic to leave";
   if ( state == "under-maint" )
      return name + " counts as drained";
   if ( state == "stopped" )
      return name + " has been let go of by a unit while another one still has it";
   if ( state.empty() )
      return name + " is not watched any more";
   return name + " is about to be watched";
}

std::string link( const std::string & name, const std::string & state, Vel::U32 changes ) {
   return name + ( state == "gone" ? " does not exist or cannot be counted" : " is " + state ) +
          afterChanges( changes );
}

std::string afterChanges( Vel::U32 changes ) {
   return changes > 1 ? ", after " + std::to_string( changes ) + " changes" : "";
}

std::string ratesText( const Maintenance::MonIntfStatus & record ) {
   const auto text = []( double bps ) { return std::isfinite( bps ) ? Api::rateText( bps ) : "unknown"; };
   return "in " + text( record.curRates().inBitsRate ) + ", out " + text( record.curRates().outBitsRate );
}

json rates( const Maintenance::MonIntfStatus & record ) {
   const auto & rates = record.curRates();
   const auto value = [&]( double bps ) {
      return rates.sampleTime > 0 && std::isfinite( bps ) ? json( bps ) : json( nullptr );
   };
   return { { "in-bps", value( rates.inBitsRate ) }, { "out-bps", value( rates.outBitsRate ) } };
}

std::string reasonSentence(
   const std::string & name, Reason reason, const std::string & from,
   const Maintenance::MonIntfStatus & record, const IntfMaintenanceProfile::Status * profile ) {
   const std::string traffic =
      record.curRates().sampleTime == 0
         ? ""
         : ": " + ratesText( record ) +
              ( profile ? ", threshold " + Api::rateText( profile->drainWatchThresholdInKbps() * 1000 )
                        : "" );
   switch ( reason ) {
   case Reason::aboveThreshold:
      if ( traffic.empty() )
         return name + " waits for its first rate";
      return name + " is above its threshold" + traffic;
   case Reason::timing:
      return name + " is below its threshold and has to stay there" + traffic;
   case Reason::stalled:
      return name + " is stalled: it is above its threshold and does not fall" + traffic;
   case Reason::oscillating:
      return name + " crosses its threshold again and again" + traffic;
   case Reason::starved:
      return name + " has no fresh counters";
   case Reason::drained:
      // On the way back it is let go of first. It has not drained just then.
      return name + ( from == stringValue( Reason::shut )
                         ? " is not set down any more, and still counts as drained"
                         : " has drained" );
   case Reason::shut:
      return name + " is to be set down";
   case Reason::spike:
      return name + " had drained, and traffic is back" + traffic;
   default:
      return name + " is not watched any more";
   }
}

std::string driftSentence( const std::string & name, const std::string & drift ) {
   if ( drift == "raised" )
      return "somebody else has set " + name + " up while it is held down; it is left up";
   if ( drift == "lowered" )
      return "somebody else has set " + name + " down; it is left down";
   return name + " is as it should be again, or nobody expects anything of it any more";
}

} // namespace Agent::InterfaceWords
