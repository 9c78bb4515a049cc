#pragma once

#include "DataPlane/Linux/LinkMessage.h"
#include "DataPlane/Switch.h"

#include <map>
#include <set>
#include <unordered_map>

/// Purpose: the links as the kernel has described them so far, told to the listener as ours: with their kind.
///
/// Kinds: a bond or team is a port-channel; a VLAN device on a bridge is the VLAN interface of its id; a VLAN device on
/// anything else is a sub-interface; loopbacks are other; a bridge is the CPU port of its VLANs; every other link is an
/// Ethernet port.
///
/// Invariants:
/// 1. A VLAN id belongs to one link at most. Another device that would be the interface of the same id, on another
///    bridge, is refused: the listener does not hear of it until the first one has gone.
/// 2. The listener is told differences only, and removals before additions, so that a name is never two links' at a time.
/// 3. News that give a link the name that another one has, as far as we know, are not taken: they may be older than a
///    dump that was (the other has got the name since), and a link that is there must not be told as gone for a moment.
///    Or else the end of the other one was missed. Either way only a dump says what is so.
namespace DataPlane::Linux {

class LinkTable {
 public:
   /// Told of differences from now on; null: nobody. The table is as it was.
   void listenerIs( LinkListener * listener ) { listener_ = listener; }
   /// Forgets everything without telling.
   void clear();

   /// Not taken if another link has the name; the table is in doubt then.
   void linkIs( const LinkMessage & link );
   void linkDel( Vel::U32 ifIndex );
   /// All links that there are: those that are missing have gone.
   void dumpIs( const std::vector< LinkMessage > & links );

   /// The kernel's number of a link that was told; 0: there is none.
   Vel::U32 ifIndex( const Wire::IntfId & intf ) const;
   /// What the link of a number was told as; the empty id: there is none, or it was refused.
   const Wire::IntfId & intf( Vel::U32 ifIndex ) const;
   /// What the link below a VLAN interface was told as; the empty id: there is none, or it was refused.
   const Wire::IntfId & below( const Wire::IntfId & vlanIntf ) const;
   /// A link as the kernel has described it, told or not; null: there is none.
   const LinkMessage * link( Vel::U32 ifIndex ) const;
   /// The kernel's name of a link, told or not; empty: there is none.
   const Vel::String & name( Vel::U32 ifIndex ) const;
   /// The number of a link by the kernel's name; 0: there is none.
   Vel::U32 ifIndexOfName( const Vel::String & name ) const;
   /// Whether there are others on the link of a number itself, and not only at its far end.
   bool hasNeighbours( Vel::U32 ifIndex ) const;
   /// Whether the link of a number is set up.
   bool adminUp( Vel::U32 ifIndex ) const;
   /// Whether it is set up and has a carrier.
   bool hasCarrier( Vel::U32 ifIndex ) const;
   /// The VLAN devices that the kernel takes down and up with a link, on whatever number of floors; lower ones first.
   std::vector< Vel::U32 > followers( Vel::U32 ifIndex ) const;
   /// Whether a link is one of the followers of another.
   bool follows( Vel::U32 ifIndex, Vel::U32 other ) const;
   /// Calls `handle` for each link, told or not, in no order, with the id that intf() gives.
   void forEach(
      const std::function< void( const LinkMessage & link, const Wire::IntfId & intf ) > & handle ) const;
   /// Differs from an earlier one if links may have come, gone or become others since. Up and down do not count.
   Vel::U64 revision() const { return revision_; }
   /// Whether news were not taken since the last dump, so that another one is needed.
   bool inDoubt() const { return inDoubt_; }
   /// What was refused and why, for the operator, the first few only; empty: nothing.
   Vel::String refusals() const;
   std::size_t size() const { return entries_.size(); }

 private:
   struct Entry {
      LinkMessage link;
      Link told; ///< with the empty id: not told
   };
   using Indices = std::set< Vel::U32 >;

   /// Floors of VLAN devices that are looked at; the kernel allows eight.
   static constexpr int maxFloors = 16;

   Entry * find( Vel::U32 ifIndex );
   const Entry * find( Vel::U32 ifIndex ) const;
   void store( const LinkMessage & link, Indices & affected );
   void erase( Vel::U32 ifIndex, Indices & affected );
   void retell( Indices affected );
   void withdraw( Entry & entry, Indices & affected );
   void tell( Entry & entry );
   Wire::IntfId classify( const LinkMessage & link ) const;
   Wire::IntfId::Kind kindOf( Vel::U32 ifIndex ) const;

   LinkListener * listener_ = nullptr;
   std::unordered_map< Vel::U32, Entry > entries_;
   std::unordered_map< Vel::String, Vel::U32 > byName_;
   std::map< Vel::U32, Indices > uppers_;   ///< VLAN devices by the link below them
   std::map< Vel::U16, Vel::U32 > holders_; ///< of VLAN ids
   std::map< Vel::U32, Vel::U16 > refused_; ///< VLAN ids by number
   bool inDoubt_ = false;
   Vel::U64 revision_ = 0;
};

} // namespace DataPlane::Linux
