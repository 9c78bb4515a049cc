#include "Agent/Control/Shapes.h"

#include <cctype>
#include <cmath>
#include <ctime>

namespace Agent {

using Maintenance::MonIntfState;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::UnitState;

std::map< std::string, Wire::IntfId >
interfacesOfUnit( const ControlModel & model, const std::string & unit ) {
   std::map< std::string, Wire::IntfId > result;
   const auto * groups = model.groupToUnitDir->unitToGroup( unit );
   if ( !groups )
      return result;
   for ( const auto & [group, none] : groups->groupKeyRange() )
      if ( const auto * status = model.intfGroupStatusDir->status( group ) )
         for ( const auto & [intf, none2] : status->intfRange() )
            result.emplace( intf.name(), intf );
   return result;
}

std::set< std::string > unitsOfInterface( const ControlModel & model, const Wire::IntfId & intf ) {
   std::set< std::string > result;
   if ( const auto * entry = model.intfToGroupDir->intfToGroup( intf ) )
      for ( const auto & [group, none] : entry->groupRange() )
         if ( const auto * mapping = model.groupToUnitDir->groupToUnit( group ) )
            for ( const auto & [unit, none2] : mapping->unitNameRange() )
               result.insert( unit );
   return result;
}

std::map< std::string, Wire::IntfId > allInterfaces( const ControlModel & model ) {
   std::map< std::string, Wire::IntfId > result;
   for ( const auto & [intf, entry] : model.intfToGroupDir->intfToGroupRange() )
      result.emplace( intf.name(), intf );
   for ( const auto & [intf, record] : model.monIntfStatusDir->monIntfStatusRange() )
      result.emplace( intf.name(), intf );
   return result;
}

std::string profileOf( const ControlModel & model, const Wire::IntfId & intf ) {
   const auto * entry = model.intfToGroupDir->intfToGroup( intf );
   if ( !entry )
      return "";
   const auto & key = entry->selectedProfileKey( ProfileType::interfaceProfile );
   return key.name == Maintenance::Profile::defaultProfileName ? model.defaultIntfProfile->profileName()
                                                               : key.name;
}

std::string kebabCase( std::string_view camelCase ) {
   std::string result;
   for ( const char c : camelCase ) {
      const auto letter = static_cast< unsigned char >( c );
      if ( std::isupper( letter ) ) {
         result += '-';
         result += static_cast< char >( std::tolower( letter ) );
      } else
         result += c;
   }
   return result;
}

std::string rfc3339( double wallSeconds ) {
   double whole = std::floor( wallSeconds );
   int millis = static_cast< int >( std::lround( ( wallSeconds - whole ) * 1000 ) );
   if ( millis == 1000 ) {
      millis = 0;
      ++whole;
   }
   const std::time_t seconds = static_cast< std::time_t >( whole );
   std::tm utc{};
   gmtime_r( &seconds, &utc );
   char date[32];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   char text[48];
   std::snprintf( text, sizeof text, "%s.%03dZ", date, millis );
   return text;
}

const char * unitStateText( UnitState state ) {
   switch ( state ) {
   case UnitState::enterInProgress:
      return "entering";
   case UnitState::maintenance:
      return "maintenance";
   case UnitState::exitInProgress:
      return "exiting";
   default:
      return "normal";
   }
}

const char * monStateText( MonIntfState state ) {
   switch ( state ) {
   case Maintenance::monIntfStateEnterMaint:
      return "enter-maint";
   case Maintenance::monIntfStateUnderMaint:
      return "under-maint";
   case Maintenance::monIntfStateStopped:
      return "stopped";
   default:
      return "idle";
   }
}

const char * kindText( Wire::IntfId::Kind kind ) {
   using Kind = Wire::IntfId::Kind;
   switch ( kind ) {
   case Kind::ethernet:
      return "ethernet";
   case Kind::portChannel:
      return "port-channel";
   case Kind::vlan:
      return "vlan";
   case Kind::subIntf:
      return "sub-interface";
   case Kind::cpu:
      return "cpu";
   default:
      return "other";
   }
}

namespace {

std::string rateText( double bps ) {
   char text[48];
   if ( bps >= 1e9 )
      std::snprintf( text, sizeof text, "%.2f Gbit/s", bps / 1e9 );
   else if ( bps >= 1e6 )
      std::snprintf( text, sizeof text, "%.2f Mbit/s", bps / 1e6 );
   else if ( bps >= 1e3 )
      std::snprintf( text, sizeof text, "%.1f kbit/s", bps / 1e3 );
   else
      std::snprintf( text, sizeof text, "%.0f bit/s", bps );
   return text;
}

} // namespace

std::string waitingText( const ControlModel & model, const Wire::IntfId & intf, double now ) {
   const auto * record = model.monIntfStatusDir->monIntfStatus( intf );
   if ( !record )
      return "is not monitored: it is down or has no counters";
   if ( record->state() == Maintenance::monIntfStateUnderMaint )
      return model.cause->intfStatus( intf ) ? "has drained and is shut" : "has drained";
   if ( record->state() == Maintenance::monIntfStateStopped )
      return "was released by another unit and is not sampled any more";
   if ( record->totalSamples() == 0 )
      return "waits for its first sample";
   const auto * profile = model.intfProfileStatusDir->status( profileOf( model, intf ) );
   if ( !profile )
      return "has no profile";
   const double rate = std::max( record->curRates().inBitsRate, record->curRates().outBitsRate );
   const double threshold = profile->drainWatchThresholdInKbps() * 1000;
   std::string text;
   if ( rate >= threshold )
      text = rateText( rate ) + ", above the threshold of " + rateText( threshold );
   else
      text = rateText( rate ) + ", quiet for " +
             std::to_string( record->numConsecutiveDrainedSamples() * 5 ) + " of " +
             std::to_string( profile->drainWatchLoadInterval() ) + " seconds";
   if ( profile->shutdown() && std::isfinite( profile->shutdownMaxDelay() ) ) {
      const double left = std::max( 0.0, record->startTime() + profile->shutdownMaxDelay() - now );
      text += "; shut in any case in " + std::to_string( std::lround( left ) ) + " seconds";
   }
   return text;
}

} // namespace Agent
