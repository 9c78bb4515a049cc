#include "Maintctl/Arrival.h"

#include "Api/Names.h"
#include "Api/Shapes.h"
#include "Maintctl/Failure.h"
#include "Maintctl/Text.h"
#include "Maintctl/Waiting.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <vector>

namespace Maintctl {

namespace {

constexpr std::size_t mostNamed = 3;
/// In front of the id of a VLAN that has no interface.
constexpr std::string_view vlanId = "vlan ";

std::string namesText( const std::vector< std::string > & names ) {
   std::string result;
   for ( std::size_t i = 0; i < std::min( mostNamed, names.size() ); ++i )
      result += ( i ? ", " : "" ) + names[i];
   if ( names.size() > mostNamed )
      result += " and " + std::to_string( names.size() - mostNamed ) + " more";
   return result;
}

/// What a unit that is under maintenance has not waited for, and why.
std::string notWaitedFor( const Api::Explanation & explanation ) {
   std::vector< std::string > named, vlans;
   for ( const Api::Skipped & skipped : explanation.skipped )
      ( skipped.interface.starts_with( vlanId ) ? vlans : named )
         .push_back( skipped.interface + " " + skipped.reason );
   // A range of ids is there for those that come; one id was written for its own sake.
   if ( vlans.size() > 1 )
      vlans = { std::to_string( vlans.size() ) + " VLANs that do not exist" };
   named.insert( named.end(), vlans.begin(), vlans.end() );
   return named.empty() ? "" : "; not waited for: " + namesText( named );
}

/// Which links of a unit that is normal are shut all the same, and for whom.
std::string stillShut( const std::string & unit, Remote & remote ) {
   const auto interfaces = Api::readInterfaces(
      remote.get( Api::Path::withFields( Api::Path::interfacesOf( unit ), "shut,shut-problem,units" ) ) );
   const auto isShut = []( const Api::Interface & i ) { return i.shut && !i.shutProblem; };
   const auto isShared = [&]( const Api::Interface & i ) { return isShut( i ) && i.units.size() > 1; };
   if ( std::none_of( interfaces.begin(), interfaces.end(), isShared ) )
      return "";
   std::set< std::string > away;
   for ( const Api::Unit & other : Api::readUnits( remote.get( Api::Path::units ) ) )
      if ( other.name != unit && other.state != Api::UnitState::normal )
         away.insert( other.name );
   std::vector< std::string > links;
   std::set< std::string > holders;
   for ( const Api::Interface & i : interfaces ) {
      const auto isAway = [&]( const std::string & name ) { return away.count( name ) != 0; };
      if ( !isShut( i ) || std::none_of( i.units.begin(), i.units.end(), isAway ) )
         continue;
      links.push_back( i.name );
      std::copy_if( i.units.begin(), i.units.end(), std::inserter( holders, holders.end() ), isAway );
   }
   return links.empty() ? ""
                        : "; " + namesText( links ) + ( links.size() == 1 ? " stays" : " stay" ) +
                             " shut for " + namesText( { holders.begin(), holders.end() } );
}

} // namespace

std::string
arrivalText( const std::string & body, Operate::Operation operation, double seconds, Remote & remote ) {
   const Api::Unit unit = Api::readUnit( body );
   const std::string text = unit.name + " is " + stateText( unit.state ) + " after " + spanText( seconds ) +
                            failuresText( unit ) + notShutText( unit );
   try {
      return text + ( operation == Operate::Operation::enter
                         ? notWaitedFor(
                              Api::readExplanation( remote.get( Api::Path::unit( unit.name, "explain" ) ) ) )
                         : stillShut( unit.name, remote ) );
   } catch ( const Failure & failure ) {
      // The unit is there whatever else can be said of it.
      if ( failure.status == ExitStatus::interrupted )
         throw;
   } catch ( const Api::Error & ) {
      // The same.
   }
   return text;
}

} // namespace Maintctl
