#pragma once

#include "DataPlane/Linux/VlanMessage.h"

#include <unordered_map>

/// Purpose: the VLANs of bridges and of their ports as the kernel has described them so far, by the number of the link.
///
/// News of a link's VLANs may come before news of the link itself, and stay when it leaves a bridge until the kernel
/// takes them back; whether they mean anything is for whoever knows the links.
///
/// When the default VLAN of a bridge is changed, the kernel tells which VLAN its links join and not which they leave: their
/// default till then. An administrator who gives a link another default leaves it in the earlier one, and the news are
/// the same. So a link whose default moves is in doubt until all VLANs are read again.
namespace DataPlane::Linux {

struct VlansOfLink {
   VlanSet vlans;          ///< not empty
   Vel::U16 defaultId = 0; ///< of frames without a tag; 0: none

   friend bool operator==( const VlansOfLink &, const VlansOfLink & ) = default;
};
/// By the number of the link.
using VlansOfLinks = std::unordered_map< Vel::U32, VlansOfLink >;
void take( const VlanEvent & event, VlansOfLinks & all );

class VlanTable {
 public:
   /// Forgets everything; the VLANs of links are not known until the kernel tells of some.
   void clear();

   void eventIs( const VlanEvent & event );
   /// All VLANs of all links.
   void dumpIs( VlansOfLinks all );
   void linkDel( Vel::U32 ifIndex );

   /// Empty if there are none.
   const VlanSet & vlans( Vel::U32 ifIndex ) const;
   /// The VLAN of frames without a tag; 0: none.
   Vel::U16 defaultId( Vel::U32 ifIndex ) const;
   /// Whether the kernel tells the VLANs of links: not if it has no such bridges, or none yet, or is too old.
   bool known() const { return known_; }
   /// Whether a link may have left a VLAN, which the kernel does not tell: only a dump says.
   bool inDoubt() const { return inDoubt_; }
   /// Differs from an earlier one if anything has changed since.
   Vel::U64 revision() const { return revision_; }
   std::size_t size() const { return all_.size(); }

 private:
   VlansOfLinks all_;
   bool known_ = false;
   bool inDoubt_ = false;
   Vel::U64 revision_ = 0;
};

} // namespace DataPlane::Linux
