#include "DataPlane/Linux/VlanTable.h"

namespace DataPlane::Linux {

void VlanTable::clear() {
   vlans_.clear();
   known_ = false;
   ++revision_;
}

void VlanTable::eventIs( const VlanEvent & event ) {
   known_ = true;
   take( event );
   ++revision_;
}

void VlanTable::dumpIs( const std::vector< VlanEvent > & events ) {
   vlans_.clear();
   for ( const VlanEvent & event : events )
      take( event );
   known_ = true;
   ++revision_;
}

void VlanTable::take( const VlanEvent & event ) {
   VlanSet & vlans = vlans_[event.ifIndex];
   if ( event.removed )
      vlans &= ~event.vlans;
   else
      vlans |= event.vlans;
   if ( vlans.none() )
      vlans_.erase( event.ifIndex );
}

void VlanTable::linkDel( Vel::U32 ifIndex ) {
   if ( vlans_.erase( ifIndex ) > 0 )
      ++revision_;
}

const VlanSet & VlanTable::vlans( Vel::U32 ifIndex ) const {
   static const VlanSet none;
   const auto at = vlans_.find( ifIndex );
   return at == vlans_.end() ? none : at->second;
}

} // namespace DataPlane::Linux
