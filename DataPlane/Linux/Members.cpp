#include "DataPlane/Linux/Members.h"

namespace DataPlane::Linux {

using Kind = Wire::IntfId::Kind;

namespace {

/// Links by their number.
using Links = std::map< Vel::U32, Wire::IntfId >;

/// Why the traffic in some VLANs of a bridge cannot be counted.
struct Doubt {
   VlanSet vlans;
   Vel::String reason;
};

struct Bridge {
   bool filtering = false;
   Vel::U16 protocol = 0;
   std::map< Vel::U16, Wire::IntfId > vlanIntfs;
   std::map< Vel::U32, VlanSet > vlansOfMembers; ///< by number; the bridge among them
   std::vector< Doubt > doubts;

   VlanSet withInterface() const {
      VlanSet result;
      for ( const auto & [vlanId, intf] : vlanIntfs )
         result.set( vlanId );
      return result;
   }
   VlanSet withMembers() const {
      VlanSet result;
      for ( const auto & [ifIndex, vlans] : vlansOfMembers )
         result |= vlans;
      return result;
   }
   VlanSet inDoubt() const {
      VlanSet result;
      for ( const Doubt & doubt : doubts )
         result |= doubt.vlans;
      return result;
   }
};

VlanSet only( Vel::U16 vlanId ) { return VlanSet().set( vlanId ); }

class Finder {
 public:
   Finder( const LinkTable & links, const VlanTable & vlans ) : links_( links ), vlans_( vlans ) {}

   Members found() {
      links_.forEach(
         [this]( const LinkMessage & link, const Wire::IntfId & intf ) { gather( link, intf ); } );
      for ( const auto & [master, members] : slaves_ )
         addPortChannel( links_.intf( master ), members );
      // Only now is it known which port-channels can be counted.
      for ( auto & [ifIndex, bridge] : bridges_ )
         look( ifIndex, bridge );
      addVlans();
      return std::move( result_ );
   }

 private:
   void gather( const LinkMessage & link, const Wire::IntfId & intf ) {
      if ( link.slaveKind == "bond" || link.slaveKind == "team" )
         slaves_[link.master][link.ifIndex] = intf;
      else if ( link.slaveKind == "bridge" )
         ports_[link.master][link.ifIndex] = intf;
      if ( intf.kind() == Kind::cpu ) {
         Bridge & bridge = bridges_[link.ifIndex];
         bridge.filtering = link.vlanFiltering;
         bridge.protocol = link.vlanProtocol;
         ports_[link.ifIndex][link.ifIndex] = intf;
      }
      if ( intf.kind() == Kind::vlan )
         vlanIntfs_[link.lower][intf.vlanId()] = { intf, link.vlanProtocol };
   }

   void addPortChannel( const Wire::IntfId & portChannel, const Links & members ) {
      if ( portChannel.kind() != Kind::portChannel )
         return;
      for ( const auto & [ifIndex, intf] : members )
         if ( intf.kind() != Kind::ethernet ) {
            result_.uncounted.emplace(
               portChannel, Vel::text( "its member \"", links_.name( ifIndex ), "\" is no Ethernet port" ) );
            return;
         }
      for ( const auto & [ifIndex, intf] : members )
         result_.portChannels.emplace( intf, portChannel );
   }

   void look( Vel::U32 ifIndex, Bridge & bridge ) {
      for ( const auto & [port, intf] : ports_[ifIndex] ) {
         const VlanSet & vlans = bridge.vlansOfMembers[port] =
            bridge.filtering ? vlans_.vlans( port ) : only( 1 );
         const bool counted = intf.kind() == Kind::ethernet || port == ifIndex ||
                              ( intf.kind() == Kind::portChannel && !result_.uncounted.count( intf ) );
         if ( !counted )
            bridge.doubts.push_back(
               { vlans, Vel::text( "its member \"", links_.name( port ), "\" cannot be counted" ) } );
      }
      const Vel::String & name = links_.name( ifIndex );
      for ( const auto & [vlanId, upper] : vlanIntfs_[ifIndex] ) {
         bridge.vlanIntfs.emplace( vlanId, upper.intf );
         if ( !bridge.filtering && vlanId != 1 )
            bridge.doubts.push_back(
               { only( vlanId ), Vel::text( "bridge \"", name, "\" does not filter VLANs" ) } );
         else if ( bridge.filtering && !vlans_.known() )
            bridge.doubts.push_back( { only( vlanId ), "the kernel does not tell the VLANs of ports" } );
         else if ( bridge.filtering && upper.protocol != bridge.protocol )
            bridge.doubts.push_back(
               { only( vlanId ),
                 Vel::text( "the VLANs of bridge \"", name, "\" are of another protocol" ) } );
      }
   }

   void addVlans() {
      VlanSet taken;
      for ( const auto & [ifIndex, bridge] : bridges_ )
         taken |= bridge.withInterface();
      for ( const auto & [ifIndex, bridge] : bridges_ ) {
         const VlanSet members = bridge.withMembers();
         const VlanSet owned = ( members & ~taken ) | bridge.withInterface();
         taken |= members;
         const VlanSet told = owned & ~bridge.inDoubt();
         for ( const auto & [port, vlans] : bridge.vlansOfMembers )
            if ( const VlanSet in = vlans & told; in.any() )
               result_.vlans.emplace( links_.intf( port ), in );
         for ( const auto & [vlanId, intf] : bridge.vlanIntfs )
            addDoubt( bridge, vlanId, intf );
      }
   }

   void addDoubt( const Bridge & bridge, Vel::U16 vlanId, const Wire::IntfId & intf ) {
      for ( const Doubt & doubt : bridge.doubts )
         if ( doubt.vlans.test( vlanId ) ) {
            result_.uncounted.emplace( intf, doubt.reason );
            return;
         }
   }

   struct VlanIntf {
      Wire::IntfId intf;
      Vel::U16 protocol = 0;
   };

   const LinkTable & links_;
   const VlanTable & vlans_;
   std::map< Vel::U32, Links > slaves_;                             ///< of bonds and teams, by master
   std::map< Vel::U32, Links > ports_;                              ///< of bridges, themselves among them
   std::map< Vel::U32, std::map< Vel::U16, VlanIntf > > vlanIntfs_; ///< by the link below
   std::map< Vel::U32, Bridge > bridges_;
   Members result_;
};

} // namespace

Members membersOf( const LinkTable & links, const VlanTable & vlans ) {
   return Finder( links, vlans ).found();
}

} // namespace DataPlane::Linux
