#include "MaintenancePlugin/UnitIntfIndex.h"

namespace MaintenanceMode {

UnitIntfIndex::UnitIntfIndex( const Vel::Ptr< UnitIntfInputDir > & dir ) : dir_( dir ) {
   dirReactor_.is( dir_, this ).hasNotificationActiveIs( true );
   for ( const auto & [unitName, input] : dir_->unitIntfInputRange() )
      handleInput( unitName );
}

void UnitIntfIndex::intfDel( const Wire::IntfId & intf ) {
   const Holders * const holders = holders_.find( intf );
   if ( !holders )
      return;
   if ( !holders->others ) {
      // Held while it tells: a reactor may take the set out of the directory.
      const Vel::Ptr< UnitIntfInput > only( dir_->unitIntfInput( holders->first->name() ) );
      only->intfDel( intf );
      return;
   }
   for ( const auto & [unitName, input] : dir_->unitIntfInputRange() )
      input->intfDel( intf );
}

void UnitIntfIndex::handleInput( const Vel::String & unitName ) {
   UnitIntfInput * const input = dir_->unitIntfInput( unitName );
   const std::unique_ptr< VelInput > * const present = inputs_.find( unitName );
   if ( present && ( *present )->entity() == input )
      return;
   std::unique_ptr< VelInput > gone;
   if ( inputs_.extract( unitName, gone ) )
      for ( const auto & [intf, value] : gone->entity()->intfRange() )
         holderDel( *gone->entity(), intf );
   if ( !input )
      return;
   for ( const auto & [intf, value] : input->intfRange() )
      holderIs( *input, intf );
   Vel::reactorIs( inputs_, unitName, Vel::Ptr< const UnitIntfInput >( input ), this );
}

void UnitIntfIndex::handleIntf( const UnitIntfInput & input, const Wire::IntfId & intf ) {
   if ( input.intf( intf ) )
      holderIs( input, intf );
   else
      holderDel( input, intf );
}

void UnitIntfIndex::holderIs( const UnitIntfInput & input, const Wire::IntfId & intf ) {
   Holders & holders = *holders_.emplace( intf ).first;
   if ( !holders.first )
      holders.first = &input;
   if ( holders.first == &input )
      return;
   if ( !holders.others )
      holders.others = std::make_unique< Others >();
   std::erase( *holders.others, &input );
   holders.others->push_back( &input );
}

void UnitIntfIndex::holderDel( const UnitIntfInput & input, const Wire::IntfId & intf ) {
   Holders * const holders = holders_.find( intf );
   Others * const others = holders->others.get();
   if ( !others ) {
      Holders gone;
      holders_.extract( intf, gone );
      return;
   }
   if ( holders->first == &input ) {
      holders->first = others->back();
      others->pop_back();
   } else {
      std::erase( *others, &input );
   }
   if ( others->empty() )
      holders->others = nullptr;
}

} // namespace MaintenanceMode
