#pragma once

#include "DataPlane/Linux/Members.h"

#include <optional>

/// Purpose: tells the listener of the members of port-channels and VLANs.
/// Owner: the switch. Stands between the table of links and the listener, since memberships are told after the links
/// that they name and go before them.
/// Order: links are passed on as they change; settle() compares what is to be told with what has been.
///
/// Invariant: a link that goes from a VLAN to a port-channel, or back, leaves the one before it joins the other.
namespace DataPlane::Linux {

class Membership final : public LinkListener {
 public:
   /// Both tables outlive it; it must be the listener of that of links.
   Membership( const LinkTable & links, const VlanTable & vlans ) : links_( links ), vlans_( vlans ) {}

   /// Told of what comes from now on, as if nothing had been told before; null: nobody.
   void listenerIs( Listener * listener );

   void linkIs( const Link & link ) override;
   void linkDel( const Wire::IntfId & intf ) override;

   /// Tells the differences if the tables have changed since the last time.
   void settle();
   /// What could not be counted by the last settle() and why, for the operator; empty: nothing.
   const Vel::String & uncounted() const { return uncounted_; }
   /// Why that is so of one interface; empty: it can be counted.
   Vel::String uncounted( const Wire::IntfId & intf ) const;

 private:
   void leave( const Members & wanted );
   void join( const Members & wanted );
   void leaveVlans( const Wire::IntfId & member, const VlanSet & vlans );

   struct Revisions {
      Vel::U64 links, vlans;
      friend bool operator==( const Revisions &, const Revisions & ) = default;
   };

   const LinkTable & links_;
   const VlanTable & vlans_;
   Listener * listener_ = nullptr;
   Members told_;
   Vel::String uncounted_;
   std::optional< Revisions > settled_; ///< none: something is still to be told
};

} // namespace DataPlane::Linux
