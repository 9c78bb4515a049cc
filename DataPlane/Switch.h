#pragma once

#include "DataPlane/Routes.h"
#include "Platform/Counters/VelPool.h"

/// Purpose: what we need of a switch: its links as it sees them, the octets they have carried, and setting a link up
/// or down. The kernel, the switch in memory and injected faults are implementations of it.
///
/// Order: start(), then countersRefresh() as often as wanted; facts come to the listener from then on.
/// One thread, that of the event loop. Names are the kernel's, counts are octets, times are seconds.
///
/// Invariants:
/// 1. The listener is called inside start(), and after that only in the phase of a turn that brings in what happened
///    outside; never inside linkSet(), countersRefresh() or linkSnapshot().
/// 2. Whatever goes wrong outside is a value (Outcome, Health), never an exception and never an assertion.
namespace DataPlane {

/// Success, or what failed: a text that names what and where.
class [[nodiscard]] Outcome {
 public:
   Outcome() = default;
   /// An empty text becomes "unknown error".
   static Outcome failed( Vel::String text );

   bool ok() const { return text_.empty(); }
   /// Empty if it succeeded.
   const Vel::String & text() const { return text_; }

   friend bool operator==( const Outcome &, const Outcome & ) = default;

 private:
   Vel::String text_;
};

/// A link as the switch itself sees it, our own shutdowns included.
struct Link {
   Wire::IntfId intf;    ///< kind and name
   Vel::U32 ifIndex = 0; ///< the switch's own number, above 0; does not change while the link exists
   bool adminUp = false; ///< somebody wants it up
   bool operUp = false;  ///< it is up and has a carrier
   /// Of a bridge: how often its carrier has come or gone, which it does each time the bridge is set up or down while a
   /// port of it forwards. 0: nobody can say.
   Vel::U32 carrierChanges = 0;

   friend bool operator==( const Link &, const Link & ) = default;
};

/// How well the switch can be seen and set.
struct Health {
   bool degraded = false; ///< links may be out of date: nothing new may be decided on them
   /// What is wrong; may be there without being degraded, for example when a link was refused. Empty: all is well.
   Vel::String text;

   friend bool operator==( const Health &, const Health & ) = default;
};

/// The caller's own number of a request; it is given back with the result.
using RequestId = Vel::U64;

/// The two halves of setting a link. A link that is up without all that should have come back is still up.
struct LinkSetResult {
   Outcome link;    ///< whether the link was set
   Outcome restore; ///< whether everything that was to be restored is there again; success if nothing was
   /// If not all is: what may be restored when the link has a carrier, or in a while, by linkRestore(). Empty: nothing.
   Vel::String left = {};
};

/// Whoever is told of links. Another kind under the same name is a removal and then a new link; so is another name, and
/// a link that was deleted and made again. Equal facts are not repeated.
class LinkListener {
 public:
   virtual void linkIs( const Link & link ) = 0;
   virtual void linkDel( const Wire::IntfId & intf ) = 0;

 protected:
   ~LinkListener() = default;
};

/// Whoever is told of the switch. The agent.
///
/// A link is told before memberships that name it and goes after them. Equal facts are not repeated. Of a port-channel
/// or VLAN whose traffic the counters of ports do not show, no member is told.
class Listener : public LinkListener {
 public:
   /// The port-channel that an Ethernet port is configured into; the empty id: none (any more).
   virtual void portChannelIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) = 0;
   /// Members are Ethernet ports, port-channels and the switch's own port; never a port that is in a port-channel.
   /// `vlanId` is 1 to 4094.
   virtual void vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) = 0;
   virtual void vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) = 0;
   /// A request has ended. Facts that follow from it and were known by then have been told before.
   virtual void linkSetDone( RequestId id, const LinkSetResult & result ) = 0;
   /// A request that goes on sets nothing up or down any more: its link is up, and what came up with it that was down
   /// before is down again. Whatever is set otherwise from now on is somebody else's wish. Told before its end, once at
   /// most, and not of a request that gives nothing back.
   virtual void linkSetRestores( RequestId id ) = 0;
   /// True: what is told until it is false again are the differences from all links, as they have been read anew. A link
   /// may have changed more often meanwhile than is told. Otherwise all that changes is told, one by one.
   virtual void rereadIs( bool goesOn ) = 0;
   /// Facts had been lost; by now all differences have been told.
   virtual void resynchronised() = 0;
   virtual void healthIs( const Health & health ) = 0;

 protected:
   ~Listener() = default;
};

/// Bytes to keep and hand back; a text of lines, the same for the same state. Empty: nothing to restore.
struct LinkSnapshot {
   Outcome outcome;
   Vel::String text; ///< empty if it failed
};

class Switch : public Vel::PtrInterface {
 public:
   /// Tells the listener every link and membership before it returns; later changes come from the event loop.
   /// May be called again, with the same or another listener: everything is told anew; requests that are still going
   /// on are carried out, but nobody hears of them. If it fails, the listener may have been told a part, and hears
   /// nothing more. The listener must live until stop() or the end of the switch, and must call neither of the two
   /// while it is being told something.
   virtual Outcome start( Listener & listener ) = 0;
   /// Nobody is told anything from now on. Links stay as they are.
   virtual void stop() = 0;

   /// Brings the counters of all Ethernet ports in the pool up to date: the agent calls it at the first read in a turn
   /// and for no other pool. Counts never decrease, also not when a link is deleted and made again under its name. A
   /// port that cannot be read or has gone has no entry afterwards. If it fails, entries are as they were or newer,
   /// and must be taken for stale.
   virtual Outcome countersRefresh( VelPool::EntityManager & pool ) = 0;

   /// Asks for a link to be set up or down; something that leaves the process, so it belongs after the commit of a
   /// turn. A later turn tells the listener how it ended, exactly once, also if there is no such link. Success means
   /// that the link has been read again and is as wanted. `restore` is the text of an earlier snapshot of this link,
   /// given back after it is up; what is there again by then is left as it is. Ignored for down.
   virtual void linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) = 0;
   /// What the link, and what the switch takes down and up with it, will lose when it goes down: addresses, routes and
   /// the like, and who of them is down already. To be taken before linkSet( down ).
   virtual LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) = 0;
   /// A snapshot as it is to be restored to a link that somebody else has set up meanwhile: what has been set up with it
   /// stays up.
   virtual Vel::String raisedByOthers( const Vel::String & snapshot ) const = 0;
   /// What two snapshots of a link hold together, the earlier one first; of one that cannot be read, the other.
   virtual Vel::String snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const = 0;
   /// Gives back to a link that is up and has a carrier what an earlier request has left. Sets nothing up or down. A later
   /// turn tells how it ended, as linkSet() does.
   virtual void linkRestore( RequestId id, const Wire::IntfId & intf, const Vel::String & left ) = 0;

   /// Asks for the routes and what they lead over. Answered once, in a later turn and when what
   /// happened outside is brought in, `routePatience` seconds after the reading has begun at the latest; one reading at
   /// most goes before. Nobody is answered any more after stop(). Nothing changes by it.
   virtual void routesAsk( const RouteQuestion & question, RoutesAnswered answered ) = 0;
   static constexpr double routePatience = 3;
   /// Bits per second that a port that is up can carry in each direction; nothing: nobody knows, or it is no such port. Its
   /// driver may have to ask the port itself, so a turn should ask of a few.
   virtual std::optional< double > portSpeed( const Vel::String & name ) = 0;

   /// Whether members of port-channels and VLANs are told. If not, nobody can say what those carry.
   virtual bool tellsMembership() const = 0;
   /// Why nobody can say what a port-channel or VLAN interface carries although members are told, for the operator: its
   /// traffic does not pass the counters of ports, so no member of it is told. Empty: it carries what its members do,
   /// without any, nothing.
   virtual Vel::String uncounted( const Wire::IntfId & intf ) const = 0;
   /// The bridge below a VLAN interface, which takes it down and up with itself; the empty id: none.
   virtual Wire::IntfId bridgeBelow( const Wire::IntfId & vlanIntf ) const = 0;
   /// Differs after each start of the switch, which forgets who was set down; never empty.
   virtual const Vel::String & bootId() const = 0;
};

} // namespace DataPlane
