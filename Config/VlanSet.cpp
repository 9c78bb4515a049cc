#include "Config/VlanSet.h"

#include "Config/InQuotes.h"

#include <algorithm>

namespace Config {

namespace {

/// The number, at most 65535 (more is out of range in any case); nothing if it is not one as we write them.
std::optional< unsigned > number( std::string_view text ) {
   if (
      text.empty() || text.find_first_not_of( "0123456789" ) != text.npos ||
      ( text[0] == '0' && text.size() > 1 ) )
      return std::nullopt;
   unsigned result = 0;
   for ( const char c : text )
      result = std::min( result * 10 + static_cast< unsigned >( c - '0' ), 65535U );
   return result;
}

bool inRange( unsigned vlan ) { return minVlanId <= vlan && vlan <= maxVlanId; }

} // namespace

Parsed< VlanRange > VlanRange::parse( std::string_view text ) {
   using Result = Parsed< VlanRange >;
   const std::size_t dash = text.find( '-' );
   const std::string_view firstText = text.substr( 0, dash );
   const std::string_view lastText = dash == text.npos ? firstText : text.substr( dash + 1 );
   const std::optional< unsigned > first = number( firstText );
   const std::optional< unsigned > last = number( lastText );
   if ( !first || !last )
      return Result::refused( inQuotes( text ) + " is not a VLAN id or range; examples: 10, 20-29" );
   if ( !inRange( *first ) || !inRange( *last ) )
      return Result::refused(
         "VLAN " + inQuotes( inRange( *first ) ? lastText : firstText ) + " is out of range 1-4094" );
   if ( *first > *last )
      return Result::refused(
         "VLAN range " + inQuotes( text ) + " is reversed; write " + std::string( lastText ) + "-" +
         std::string( firstText ) );
   return Result::of( { static_cast< VlanId >( *first ), static_cast< VlanId >( *last ) } );
}

std::string VlanRange::text() const {
   return first == last ? std::to_string( first ) : std::to_string( first ) + "-" + std::to_string( last );
}

VlanSet::VlanSet( std::initializer_list< VlanRange > ranges ) {
   for ( const VlanRange & range : ranges )
      add( range );
}

void VlanSet::add( VlanRange range ) {
   // Everything that overlaps or touches the new range becomes one range with it.
   const auto begin = std::find_if(
      ranges_.begin(), ranges_.end(), [&]( const VlanRange & old ) { return old.last + 1 >= range.first; } );
   const auto end = std::find_if(
      begin, ranges_.end(), [&]( const VlanRange & old ) { return old.first > range.last + 1; } );
   if ( begin != end ) {
      range.first = std::min( range.first, begin->first );
      range.last = std::max( range.last, std::prev( end )->last );
   }
   ranges_.insert( ranges_.erase( begin, end ), range );
}

bool VlanSet::contains( VlanId vlan ) const {
   return std::any_of(
      ranges_.begin(), ranges_.end(), [&]( const VlanRange & range ) { return range.contains( vlan ); } );
}

std::vector< VlanId > VlanSet::ids() const {
   std::vector< VlanId > result;
   for ( const VlanRange & range : ranges_ )
      for ( unsigned vlan = range.first; vlan <= range.last; ++vlan )
         result.push_back( static_cast< VlanId >( vlan ) );
   return result;
}

VlanSet VlanSet::without( const VlanSet & other ) const {
   VlanSet result;
   for ( const VlanId vlan : ids() )
      if ( !other.contains( vlan ) )
         result.add( { vlan, vlan } );
   return result;
}

std::string VlanSet::text() const {
   std::string result;
   for ( const VlanRange & range : ranges_ )
      result.append( result.empty() ? "" : "," ).append( range.text() );
   return result;
}

} // namespace Config
