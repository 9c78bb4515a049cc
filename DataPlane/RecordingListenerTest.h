#pragma once

#include "DataPlane/Switch.h"

#include <functional>
#include <map>
#include <set>
#include <vector>

/// Purpose: a listener for tests: keeps what it is told as a story and as the state that follows from it, and checks the
/// promises that every switch makes to its listener.
namespace DataPlane {

class RecordingListener final : public Listener {
 public:
   using VlanMember = std::pair< Vel::U16, Vel::String >;

   /// For example "et1 up", "et1 admin-down", "-et1", "et3 in pc1", "10+et1", "1 done", "resynchronised".
   std::vector< Vel::String > story;
   std::map< Vel::String, Link > links; ///< by name
   std::map< Vel::String, Vel::String > portChannels;
   std::set< VlanMember > vlanMembers;
   std::map< RequestId, LinkSetResult > results;
   std::set< RequestId > restores; ///< requests that set nothing up or down any more
   Health health;
   bool rereading = false;             ///< what is told comes of links that are read anew
   std::vector< Vel::String > changed; ///< of the story, links that have changed by themselves
   /// Called with each result.
   std::function< void( RequestId ) > onDone;
   /// Promises that were broken; stays empty.
   std::vector< Vel::String > broken;

   /// The story joined by commas, which then begins anew.
   Vel::String take() {
      Vel::String result;
      for ( const Vel::String & line : std::exchange( story, {} ) )
         result += ( result.empty() ? "" : ", " ) + line;
      return result;
   }
   /// All memberships, for example "et3 in pc1, 10+et1".
   Vel::String members() const {
      Vel::String result;
      for ( const auto & [port, portChannel] : portChannels )
         result += ( result.empty() ? "" : ", " ) + port + " in " + portChannel;
      for ( const auto & [vlanId, member] : vlanMembers )
         result += Vel::text( result.empty() ? "" : ", ", vlanId, "+", member );
      return result;
   }
   const Link * link( const Vel::String & name ) const {
      const auto at = links.find( name );
      return at == links.end() ? nullptr : &at->second;
   }
   bool up( const Vel::String & name ) const { return link( name ) && link( name )->operUp; }

   void linkIs( const Link & link ) override {
      const Vel::String name( link.intf.name() );
      const auto at = links.find( name );
      require( at == links.end() || at->second != link, "equal link repeated: " + name );
      require( at == links.end() || at->second.intf == link.intf, "kind changed: " + name );
      require( at == links.end() || at->second.ifIndex == link.ifIndex, "number changed: " + name );
      require( link.ifIndex > 0 && !link.intf.empty(), "link without number or name" );
      require( link.adminUp || !link.operUp, "up while it is set down: " + name );
      links.insert_or_assign( name, link );
      story.push_back( name + ( link.operUp ? " up" : link.adminUp ? " down" : " admin-down" ) );
      if ( !rereading )
         changed.push_back( name );
   }
   void linkDel( const Wire::IntfId & intf ) override {
      const Vel::String name( intf.name() );
      require( links.erase( name ) == 1, "unknown link removed: " + name );
      for ( const auto & [port, portChannel] : portChannels )
         require( port != name && portChannel != name, "removed while it is in a port-channel: " + name );
      for ( const VlanMember & member : vlanMembers )
         require( member.second != name, "removed while it is in a VLAN: " + name );
      story.push_back( "-" + name );
   }
   void portChannelIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) override {
      const Vel::String name( port.name() );
      require( link( name ), "member without a link: " + name );
      if ( portChannel.empty() ) {
         require( portChannels.erase( name ) == 1, "was in no port-channel: " + name );
         story.push_back( name + " in none" );
         return;
      }
      const Vel::String channel( portChannel.name() );
      require( link( channel ), "port-channel without a link: " + channel );
      portChannels[name] = channel;
      for ( const VlanMember & member : vlanMembers )
         require( member.second != name, "in a port-channel and in a VLAN: " + name );
      story.push_back( name + " in " + channel );
   }
   void vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) override {
      const Vel::String name( member.name() );
      require( link( name ), "member without a link: " + name );
      require( !portChannels.count( name ), "in a VLAN and in a port-channel: " + name );
      require( vlanMembers.insert( { vlanId, name } ).second, "member repeated: " + name );
      story.push_back( Vel::text( vlanId, "+", name ) );
   }
   void vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) override {
      const Vel::String name( member.name() );
      require( vlanMembers.erase( { vlanId, name } ) == 1, "no member: " + name );
      story.push_back( Vel::text( vlanId, "-", name ) );
   }
   void linkSetDone( RequestId id, const LinkSetResult & result ) override {
      require( results.emplace( id, result ).second, Vel::text( "reported twice: ", id ) );
      story.push_back( Vel::text( id, result.link.ok() ? " done" : " failed" ) );
      if ( onDone )
         onDone( id );
   }
   void linkSetRestores( RequestId id ) override {
      require( !results.count( id ), Vel::text( "told to restore after its end: ", id ) );
      require( restores.insert( id ).second, Vel::text( "told to restore twice: ", id ) );
   }
   void rereadIs( bool goesOn ) override {
      require( goesOn != rereading, "links are read anew within itself, or end without a beginning" );
      rereading = goesOn;
   }
   void resynchronised() override { story.push_back( "resynchronised" ); }
   void healthIs( const Health & now ) override {
      require( !( now == health ), "equal health repeated" );
      health = now;
      story.push_back( now.degraded ? "degraded" : now.text.empty() ? "healthy" : "warned" );
   }

 private:
   void require( bool kept, const Vel::String & promise ) {
      if ( !kept )
         broken.push_back( promise );
   }
};

} // namespace DataPlane
