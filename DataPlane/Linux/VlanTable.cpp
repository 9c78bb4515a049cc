#include "DataPlane/Linux/VlanTable.h"

#include <utility>

namespace DataPlane::Linux {

void take( const VlanEvent & event, VlansOfLinks & all ) {
   VlansOfLink & link = all[event.ifIndex];
   // A default that is told again and not as one has ceased to be one.
   if ( event.vlans.test( link.defaultId ) )
      link.defaultId = 0;
   if ( event.removed ) {
      link.vlans &= ~event.vlans;
   } else {
      link.vlans |= event.vlans;
      if ( event.defaultId != 0 )
         link.defaultId = event.defaultId;
   }
   if ( link.vlans.none() )
      all.erase( event.ifIndex );
}

void VlanTable::clear() {
   all_.clear();
   known_ = false;
   inDoubt_ = false;
   ++revision_;
}

void VlanTable::eventIs( const VlanEvent & event ) {
   const auto at = all_.find( event.ifIndex );
   const VlansOfLink before = at == all_.end() ? VlansOfLink() : at->second;
   const bool hasDefault = !event.removed && event.defaultId != 0;
   inDoubt_ |= hasDefault && before.defaultId != 0 && before.defaultId != event.defaultId;
   take( event, all_ );
   const bool wasKnown = std::exchange( known_, true );
   revision_ += !wasKnown || before.vlans != vlans( event.ifIndex );
}

void VlanTable::dumpIs( VlansOfLinks all ) {
   const bool wasKnown = std::exchange( known_, true );
   revision_ += !wasKnown || all_ != all;
   all_ = std::move( all );
   inDoubt_ = false;
}

void VlanTable::linkDel( Vel::U32 ifIndex ) { revision_ += all_.erase( ifIndex ); }

const VlanSet & VlanTable::vlans( Vel::U32 ifIndex ) const {
   static const VlanSet none;
   const auto at = all_.find( ifIndex );
   return at == all_.end() ? none : at->second.vlans;
}

Vel::U16 VlanTable::defaultId( Vel::U32 ifIndex ) const {
   const auto at = all_.find( ifIndex );
   return at == all_.end() ? Vel::U16( 0 ) : at->second.defaultId;
}

} // namespace DataPlane::Linux
