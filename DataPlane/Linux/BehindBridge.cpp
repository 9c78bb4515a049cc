#include "DataPlane/Linux/BehindBridge.h"

#include "DataPlane/Linux/Neighbour.h"
#include "Platform/Vel/Text.h"

namespace DataPlane::Linux {

namespace {

/// The kernel allows no circle; what we have heard so far may be one.
constexpr int deepest = 16;

} // namespace

bool standsOnLower( const LinkMessage & link ) {
   for ( const char * kind : { "vlan", "macvlan", "macvtap", "ipvlan", "ipvtap", "macsec" } )
      if ( link.kind == kind )
         return link.lower != 0;
   return false;
}

BridgeBelow bridgeBelow( const LinkTable & links, const VlanTable & vlans, Vel::U32 ifIndex ) {
   Vel::U16 tag = 0, protocol = 0;
   for ( int left = deepest; left > 0; --left ) {
      const LinkMessage * const link = links.link( ifIndex );
      if ( !link )
         return {};
      if ( link->kind == "bridge" ) {
         if ( !link->vlanFiltering )
            return { ifIndex, 0 };
         // It takes a tag of another kind for no tag.
         return { ifIndex, tag != 0 && protocol == link->vlanProtocol ? tag : vlans.defaultId( ifIndex ) };
      }
      if ( !standsOnLower( *link ) )
         return {};
      // The last one is the outermost, and none is seen that is encrypted.
      if ( link->kind == "vlan" ) {
         tag = link->vlanId;
         protocol = link->vlanProtocol;
      } else if ( link->kind == "macsec" ) {
         tag = 0;
      }
      ifIndex = link->lower;
   }
   return {};
}

std::optional< NeighbourEntry > BehindBridge::one( const Bytes & request, bool ofBridge ) {
   std::optional< NeighbourEntry > found;
   const Outcome outcome = lookUps_.one( request, "neighbour", [&]( const nlmsghdr & message ) {
      if ( const auto entry = parseNeighbour( message ); entry && entry->ofBridge == ofBridge )
         found = entry;
   } );
   return outcome.ok() ? found : std::nullopt;
}

std::optional< BehindPort > BehindBridge::find( Vel::U32 ifIndex, const IpAddress & neighbour ) {
   const BridgeBelow below = bridgeBelow( links_, vlans_, ifIndex );
   if ( below.bridge == 0 )
      return std::nullopt;
   const auto at = one( neighbourRequest( neighbour, ifIndex ), false );
   if ( !at || !at->hardware )
      return BehindPort{
         "", Vel::text(
                "the kernel knows no hardware address of ", stringValue( neighbour ), " on ",
                links_.name( ifIndex ) ) };
   const Vel::String & bridge = links_.name( below.bridge );
   const auto entry = one( bridgePortRequest( below.bridge, *at->hardware, below.vlanId ), true );
   const Vel::String port =
      entry && entry->ifIndex != below.bridge ? links_.name( entry->ifIndex ) : Vel::String();
   if ( !port.empty() )
      return BehindPort{ port, "" };
   return BehindPort{
      "", Vel::text(
             bridge, " does not know behind which port ", stringValue( *at->hardware ), " is",
             below.vlanId == 0 ? Vel::String() : Vel::text( " in VLAN ", below.vlanId ) ) };
}

} // namespace DataPlane::Linux
