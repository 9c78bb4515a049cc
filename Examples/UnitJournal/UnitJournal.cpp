#include "Platform/Ledger/MountGroup.h"
#include "Platform/Ledger/Mounter.h"
#include "Platform/Maintenance/PluginContext.h"
#include "Platform/Maintenance/PluginInterface.h"
#include "Platform/Maintenance/PluginLoader.h"
#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Vel/Clock.h"
#include "Platform/Vel/Log.h"

#include <cstdio>

/// A whole plug-in, as small as one can be that does something: it watches the maintenance units, writes a line to the
/// agent's log when one of them changes its state, and says in `maintctl dump` how often each has.
///
/// What any plug-in has: the interface that it was built for (MAINT_PLUGIN_DECLARE), one static object that registers
/// itself with the loader (Plugin), and an entity that does the work in the context's directory (Journal), which lives
/// until the agent takes it out there.

MAINT_PLUGIN_DECLARE();

namespace UnitJournal {

using Maintenance::Unit::Status;
using Maintenance::Unit::StatusDir;

const Vel::LogHandle UNIT_STATE_CHANGE(
   "UNIT_STATE_CHANGE", Vel::LogSeverity::informational, "Unit %s: %s (was %s)",
   "A maintenance unit has changed its state.", Vel::NoActionRequired, 0.0, 1.0, 0 );

/// One unit. Owner: the journal, for as long as the unit is there.
class Unit final : public Vel::Entity {
   VEL_ENTITY( Unit );
   Unit( const Vel::String & name, const Vel::Ptr< const Status > & status )
      : name_( name ), status_( status ), last_( status->state() ) {
      state_.is( status.get(), this ).hasNotificationActiveIs( true );
   }
   VEL_PARAM( Vel::String, name );
   VEL_PARAM( Vel::Ptr< const Status >, status );
   VEL_COUNTER( changes, onChanges );

   struct VelState final : public Vel::ReactorTo< Unit, Status > {
      using ReactorTo::ReactorTo;
      void onState() override { sm()->handleState(); }
   };

 private:
   void handleState() {
      UNIT_STATE_CHANGE.emit( name(), status()->state(), last_ );
      last_ = status()->state();
      changesInc( 1 );
   }

   Maintenance::Unit::UnitState last_;
   Vel::Watch< VelState > state_;
};

class Journal;

/// What `maintctl dump` shows of us. Owner: the journal.
class Dumper final : public Maintenance::DumpPluginInfo {
   VEL_SUBENTITY( Dumper, Maintenance::DumpPluginInfo );
   Dumper( const Vel::String & name, const Journal * journal )
      : DumpPluginInfo( name ), journal_( journal ) {}
   void dump( unsigned fd ) const override;

 private:
   const Journal * journal_;
};

/// Does the work. Owner: the context's directory.
class Journal final : public Ledger::Mounter {
   VEL_SUBENTITY( Journal, Ledger::Mounter );
   explicit Journal( const Vel::String & name ) : Mounter( name ) {}
   VEL_CHILDREN( Vel::String, Unit, unit, onUnit );

   /// Asks the state store for what we read; what it has is there in a later turn.
   void init( Maintenance::PluginContext & context ) {
      dumper_ = Vel::make< Dumper >( "UnitJournal", this );
      context.dumpPluginInfoIs( dumper_ );
      const auto mounts = context.entityManager()->getMountGroup( this );
      mounts->doMount( { "maintenance/unit/status", "Maintenance::Unit::StatusDir", "r" } );
      mounts->doClose( false, "", 0.0 );
   }
   void
   doMountsComplete( Ledger::MountStatus status, const Vel::Ptr< Ledger::EntityManager > & store ) override {
      if ( status != Ledger::mountSuccess_ )
         return;
      units_ = Vel::ptrCast< const StatusDir >(
         Vel::Ptr< const Vel::Entity >( store->entity( "maintenance/unit/status" ) ) );
      unitWatch_.is( units_.get(), this ).hasNotificationActiveIs( true );
      // Nothing is replayed to who comes late: what is there already is taken up here.
      for ( const auto & [unitName, unitStatus] : units_->statusRange() )
         handleUnit( unitName );
   }

   struct VelUnits final : public Vel::ReactorTo< Journal, StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & name ) override { sm()->handleUnit( name ); }
   };

 private:
   /// A unit has come or gone.
   void handleUnit( const Vel::String & unitName ) {
      unitDel( unitName );
      if ( Status * const unitStatus = units_->status( unitName ) )
         unitIs( unitName, Vel::Ptr< const Status >( unitStatus ) );
   }

   Vel::Ptr< const StatusDir > units_;
   Vel::Watch< VelUnits > unitWatch_;
   Vel::Ptr< Dumper > dumper_;
};

void Dumper::dump( unsigned fd ) const {
   dprintf( static_cast< int >( fd ), "Unit journal\n" );
   for ( const auto & [unitName, unit] : journal_->unitRange() )
      dprintf(
         static_cast< int >( fd ), "  %s: %s, %u changes\n", unitName.c_str(),
         stringValue( unit->status()->state() ).c_str(), unit->changes() );
}

namespace {

// The types that are made by their names. They stand before the plug-in, whose work ends before they go.
const Vel::TypeRegistration< Unit > unitType;
const Vel::TypeRegistration< Journal > journalType;

class Plugin final : public Maintenance::PluginBase< Maintenance::PluginContext > {
 public:
   Plugin() {
      auto & loader = Maintenance::DefaultPluginLoader();
      loader.registerPlugin(
         "UnitJournal", loader.name(), "a line in the log for each change of a unit's state", "1",
         Maintenance::InitCaller( this ) );
   }
   void init( Maintenance::PluginContext * context ) override {
      const auto journal = Vel::make< Journal >( "unitJournal" );
      context->entityDir()->entryPut( "unitJournal", journal );
      journal->init( *context );
   }
};

Plugin plugin;

} // namespace

} // namespace UnitJournal
