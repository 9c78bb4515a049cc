#pragma once

#include "MaintenancePlugin/UnitIntfInput.h"

#include <memory>
#include <vector>

namespace MaintenanceMode {

/// Purpose: which of the units' sets hold an interface, so that taking it out of all of them does not visit the sets
/// of every unit. Most interfaces are in none and nearly all others in one. Owner: the root.
///
/// Invariant: follows the directory and each of its sets inside the write, before any reactor that was switched on
/// after the set had been put there.
class UnitIntfIndex {
 public:
   /// `dir` is not null; what is in it already is followed too.
   explicit UnitIntfIndex( const Vel::Ptr< UnitIntfInputDir > & dir );

   /// Takes the interface out of every set of the directory, in the order of the units.
   void intfDel( const Wire::IntfId & intf );

   struct VelDir final : Vel::ReactorTo< UnitIntfIndex, UnitIntfInputDir > {
      using ReactorTo::ReactorTo;
      void onUnitIntfInput( const Vel::String & unitName ) override { sm()->handleInput( unitName ); }
   };
   struct VelInput final : Vel::ReactorTo< UnitIntfIndex, UnitIntfInput > {
      using ReactorTo::ReactorTo;
      void onIntf( const Wire::IntfId & intf ) override { sm()->handleIntf( *entity(), intf ); }
   };

 private:
   using Others = std::vector< const UnitIntfInput * >;
   struct Holders {
      const UnitIntfInput * first = nullptr;
      std::unique_ptr< Others > others; ///< null or not empty
   };

   void handleInput( const Vel::String & unitName );
   void handleIntf( const UnitIntfInput & input, const Wire::IntfId & intf );
   void holderIs( const UnitIntfInput & input, const Wire::IntfId & intf );
   void holderDel( const UnitIntfInput & input, const Wire::IntfId & intf );

   const Vel::Ptr< UnitIntfInputDir > dir_;
   Vel::Collection< Wire::IntfId, Holders > holders_;
   Vel::Collection< Vel::String, std::unique_ptr< VelInput > > inputs_;
   Vel::Watch< VelDir > dirReactor_;
};

} // namespace MaintenanceMode
