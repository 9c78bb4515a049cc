#pragma once

#include "DataPlane/Linux/VlanMessage.h"

#include <unordered_map>
#include <vector>

/// Purpose: the VLANs of bridges and of their ports as the kernel has described them so far, by the number of the link.
///
/// News of a link's VLANs may come before news of the link itself, and stay when it leaves a bridge until the kernel
/// takes them back; whether they mean anything is for whoever knows the links.
namespace DataPlane::Linux {

class VlanTable {
 public:
   /// Forgets everything; the VLANs of links are not known until the kernel tells of some.
   void clear();

   void eventIs( const VlanEvent & event );
   /// All VLANs of all links.
   void dumpIs( const std::vector< VlanEvent > & events );
   void linkDel( Vel::U32 ifIndex );

   /// Empty if there are none.
   const VlanSet & vlans( Vel::U32 ifIndex ) const;
   /// Whether the kernel tells the VLANs of links: not if it has no such bridges, or none yet, or is too old.
   bool known() const { return known_; }
   /// Differs from an earlier one if anything may have changed since.
   Vel::U64 revision() const { return revision_; }
   std::size_t size() const { return vlans_.size(); }

 private:
   void take( const VlanEvent & event );

   std::unordered_map< Vel::U32, VlanSet > vlans_; ///< none of them empty
   bool known_ = false;
   Vel::U64 revision_ = 0;
};

} // namespace DataPlane::Linux
