#include "DataPlane/Linux/LinkTable.h"

#include "DataPlane/Linux/FirstFew.h"

namespace DataPlane::Linux {

using Kind = Wire::IntfId::Kind;

namespace {

bool isVlanDevice( const LinkMessage & link ) { return link.kind == "vlan"; }

Kind plainKind( const LinkMessage & link ) {
   if ( link.loopback )
      return Kind::other;
   if ( link.kind == "bond" || link.kind == "team" )
      return Kind::portChannel;
   if ( link.kind == "bridge" )
      return Kind::cpu;
   return isVlanDevice( link ) ? Kind::subIntf : Kind::ethernet;
}

/// Whether they describe the same link, up or down.
bool sameApartFromState( const LinkMessage & before, LinkMessage now ) {
   now.adminUp = before.adminUp;
   now.lowerUp = before.lowerUp;
   now.carrierChanges = before.carrierChanges;
   return before == now;
}

} // namespace

void LinkTable::clear() {
   entries_.clear();
   byName_.clear();
   uppers_.clear();
   holders_.clear();
   refused_.clear();
   inDoubt_ = false;
   ++revision_;
}

LinkTable::Entry * LinkTable::find( Vel::U32 ifIndex ) {
   const auto at = entries_.find( ifIndex );
   return at == entries_.end() ? nullptr : &at->second;
}

const LinkTable::Entry * LinkTable::find( Vel::U32 ifIndex ) const {
   const auto at = entries_.find( ifIndex );
   return at == entries_.end() ? nullptr : &at->second;
}

Vel::U32 LinkTable::ifIndex( const Wire::IntfId & intf ) const {
   const Vel::U32 index = ifIndexOfName( Vel::String( intf.name() ) );
   const Entry * const entry = find( index );
   return entry && !intf.empty() && entry->told.intf == intf ? index : 0;
}

const Wire::IntfId & LinkTable::intf( Vel::U32 ifIndex ) const {
   static const Wire::IntfId none;
   const Entry * const entry = find( ifIndex );
   return entry ? entry->told.intf : none;
}

const Wire::IntfId & LinkTable::below( const Wire::IntfId & vlanIntf ) const {
   const Entry * const entry = find( ifIndex( vlanIntf ) );
   return intf( entry ? entry->link.lower : 0 );
}

const LinkMessage * LinkTable::link( Vel::U32 ifIndex ) const {
   const Entry * const entry = find( ifIndex );
   return entry ? &entry->link : nullptr;
}

const Vel::String & LinkTable::name( Vel::U32 ifIndex ) const {
   static const Vel::String none;
   const Entry * const entry = find( ifIndex );
   return entry ? entry->link.name : none;
}

Vel::U32 LinkTable::ifIndexOfName( const Vel::String & name ) const {
   const auto at = byName_.find( name );
   return at == byName_.end() ? 0 : at->second;
}

bool LinkTable::hasNeighbours( Vel::U32 ifIndex ) const {
   const Entry * const entry = find( ifIndex );
   return entry && !entry->link.pointToPoint;
}

bool LinkTable::adminUp( Vel::U32 ifIndex ) const {
   const Entry * const entry = find( ifIndex );
   return entry && entry->link.adminUp;
}

bool LinkTable::hasCarrier( Vel::U32 ifIndex ) const {
   const Entry * const entry = find( ifIndex );
   return entry && entry->link.adminUp && entry->link.lowerUp;
}

std::vector< Vel::U32 > LinkTable::followers( Vel::U32 ifIndex ) const {
   std::vector< Vel::U32 > result;
   std::vector< Vel::U32 > floor{ ifIndex };
   for ( int floors = 0; floors < maxFloors && !floor.empty(); ++floors ) {
      std::vector< Vel::U32 > above;
      for ( const Vel::U32 lower : floor )
         if ( const auto uppers = uppers_.find( lower ); uppers != uppers_.end() )
            for ( const Vel::U32 upper : uppers->second )
               if ( !find( upper )->link.looseBinding )
                  above.push_back( upper );
      result.insert( result.end(), above.begin(), above.end() );
      floor = std::move( above );
   }
   return result;
}

bool LinkTable::follows( Vel::U32 ifIndex, Vel::U32 other ) const {
   const Entry * entry = find( ifIndex );
   for ( int floors = 0; floors < maxFloors && entry; ++floors ) {
      if ( !isVlanDevice( entry->link ) || entry->link.looseBinding || entry->link.lower == 0 )
         return false;
      if ( entry->link.lower == other )
         return true;
      entry = find( entry->link.lower );
   }
   return false;
}

void LinkTable::forEach(
   const std::function< void( const LinkMessage & link, const Wire::IntfId & intf ) > & handle ) const {
   for ( const auto & [ifIndex, entry] : entries_ )
      handle( entry.link, entry.told.intf );
}

Vel::String LinkTable::refusals() const {
   std::vector< Vel::String > texts;
   for ( const auto & [index, vlanId] : refused_ ) {
      if ( texts.size() == few )
         break;
      texts.push_back( Vel::text(
         "link \"", name( index ), "\" is refused: VLAN ", vlanId,
         " has an interface on another bridge already, \"", name( holders_.at( vlanId ) ), "\"" ) );
   }
   return firstFew( texts, refused_.size() );
}

Kind LinkTable::kindOf( Vel::U32 ifIndex ) const {
   const Entry * const entry = find( ifIndex );
   return entry ? plainKind( entry->link ) : Kind::none;
}

/// The id that the link has, VLAN ids of others apart.
Wire::IntfId LinkTable::classify( const LinkMessage & link ) const {
   switch ( plainKind( link ) ) {
   case Kind::other:
      return Wire::IntfId::other( link.name );
   case Kind::portChannel:
      return Wire::PortChannelIntfId( link.name );
   case Kind::cpu:
      return Wire::CpuIntfId( link.name );
   case Kind::subIntf: {
      const Kind below = kindOf( link.lower );
      if ( below == Kind::cpu && link.vlanId != 0 )
         return Wire::VlanIntfId( link.name, link.vlanId );
      return Wire::SubIntfId(
         link.name, below == Kind::none || below == Kind::subIntf ? Kind::ethernet : below );
   }
   default:
      return Wire::EthIntfId( link.name );
   }
}

void LinkTable::linkIs( const LinkMessage & link ) {
   const Vel::U32 other = ifIndexOfName( link.name );
   if ( other != 0 && other != link.ifIndex ) {
      inDoubt_ = true;
      return;
   }
   Indices affected;
   store( link, affected );
   retell( affected );
}

void LinkTable::linkDel( Vel::U32 ifIndex ) {
   Indices affected;
   erase( ifIndex, affected );
   retell( affected );
}

/// A link that is renamed while it is dumped may be told with a name that another bears by then. What was told later
/// counts, and the news that are still to come are not enough to go on from that.
void LinkTable::dumpIs( const std::vector< LinkMessage > & links ) {
   std::map< Vel::U32, const LinkMessage * > byIndex;
   std::map< Vel::String, const LinkMessage * > byName;
   for ( const LinkMessage & link : links )
      byIndex[link.ifIndex] = &link;
   for ( const LinkMessage & link : links )
      if ( byIndex.at( link.ifIndex ) == &link )
         byName[link.name] = &link;
   Indices present, affected, gone;
   for ( const auto & [name, link] : byName )
      present.insert( link->ifIndex );
   for ( const auto & [index, entry] : entries_ )
      if ( !present.count( index ) )
         gone.insert( index );
   for ( const Vel::U32 index : gone )
      erase( index, affected );
   std::vector< const LinkMessage * > changed;
   for ( const auto & [name, link] : byName )
      if ( const Entry * const entry = find( link->ifIndex ); !entry || entry->link != *link )
         changed.push_back( link );
   // Names may have been exchanged, so all old ones go before the new ones are entered.
   for ( const LinkMessage * const link : changed )
      if ( const Entry * const entry = find( link->ifIndex ) )
         byName_.erase( entry->link.name );
   for ( const LinkMessage * const link : changed )
      store( *link, affected );
   inDoubt_ = byName.size() < byIndex.size();
   retell( affected );
}

void LinkTable::store( const LinkMessage & link, Indices & affected ) {
   Entry & entry = entries_[link.ifIndex];
   const bool kindChanged = entry.link.ifIndex == 0 || plainKind( entry.link ) != plainKind( link );
   const auto at = byName_.find( entry.link.name );
   if ( at != byName_.end() && at->second == link.ifIndex )
      byName_.erase( at );
   byName_[link.name] = link.ifIndex;
   if ( isVlanDevice( entry.link ) )
      uppers_[entry.link.lower].erase( link.ifIndex );
   if ( isVlanDevice( link ) )
      uppers_[link.lower].insert( link.ifIndex );
   revision_ += !sameApartFromState( entry.link, link );
   entry.link = link;
   affected.insert( link.ifIndex );
   const auto uppers = uppers_.find( link.ifIndex );
   if ( kindChanged && uppers != uppers_.end() )
      affected.insert( uppers->second.begin(), uppers->second.end() );
}

void LinkTable::erase( Vel::U32 ifIndex, Indices & affected ) {
   Entry * const entry = find( ifIndex );
   if ( !entry )
      return;
   withdraw( *entry, affected );
   refused_.erase( ifIndex );
   const auto at = byName_.find( entry->link.name );
   if ( at != byName_.end() && at->second == ifIndex )
      byName_.erase( at );
   if ( isVlanDevice( entry->link ) )
      uppers_[entry->link.lower].erase( ifIndex );
   const auto uppers = uppers_.find( ifIndex );
   if ( uppers != uppers_.end() )
      affected.insert( uppers->second.begin(), uppers->second.end() );
   entries_.erase( ifIndex );
   affected.erase( ifIndex );
   ++revision_;
}

/// Removals first; each may free a VLAN id, for which those that were refused are considered again.
void LinkTable::retell( Indices affected ) {
   const Indices changed = affected;
   for ( const Vel::U32 index : changed ) {
      Entry & entry = *find( index );
      if ( !entry.told.intf.empty() && entry.told.intf != classify( entry.link ) )
         withdraw( entry, affected );
   }
   for ( const Vel::U32 index : affected )
      tell( *find( index ) );
}

void LinkTable::withdraw( Entry & entry, Indices & affected ) {
   if ( entry.told.intf.empty() )
      return;
   const Vel::U16 vlanId = entry.told.intf.vlanId();
   if ( vlanId != 0 ) {
      holders_.erase( vlanId );
      for ( const auto & [index, refusedId] : refused_ )
         if ( refusedId == vlanId )
            affected.insert( index );
   }
   const Wire::IntfId intf = std::exchange( entry.told, {} ).intf;
   if ( listener_ )
      listener_->linkDel( intf );
}

void LinkTable::tell( Entry & entry ) {
   const LinkMessage & link = entry.link;
   const Wire::IntfId intf = classify( link );
   refused_.erase( link.ifIndex );
   if ( const Vel::U16 vlanId = intf.vlanId() ) {
      const auto [holder, isNew] = holders_.emplace( vlanId, link.ifIndex );
      if ( holder->second != link.ifIndex ) {
         refused_[link.ifIndex] = vlanId;
         return;
      }
   }
   const Link wanted{ intf, link.ifIndex, link.adminUp, link.adminUp && link.lowerUp, link.carrierChanges };
   if ( wanted == entry.told )
      return;
   entry.told = wanted;
   if ( listener_ )
      listener_->linkIs( wanted );
}

} // namespace DataPlane::Linux
