#pragma once

#include "Platform/Ledger/FaultEngine.h"
#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/Persistence.h"

#include <memory>

/// Entities of every shape, and a process that keeps them and can crash.
namespace StoreTest {

class Leaf final : public Vel::Entity {
   VEL_ENTITY( Leaf );
   explicit Leaf( const Vel::String & name, Vel::U32 born = 0 ) : name_( name ), born_( born ) {}
   VEL_PARAM( Vel::String, name );
   VEL_PARAM( Vel::U32, born ); ///< not part of the key
   VEL_ATTR( double, speed, onSpeed );
   VEL_SET( Vel::String, spot, onSpot );
};

class Branch final : public Vel::Entity {
   VEL_ENTITY( Branch );
   explicit Branch( int number ) : number_( number ) {}
   VEL_PARAM( int, number );
   VEL_COUNTER( bends, onBends );
   VEL_CHILDREN( Vel::String, Leaf, leaf, onLeaf );
   VEL_CHILDREN( int, Branch, branch, onBranch, Ordered );
};

class Tree final : public Vel::Entity {
   VEL_ENTITY( Tree );
   explicit Tree( const Vel::String & name ) : name_( name ) {}
   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::String, title, onTitle );
   VEL_ATTR( double, height, onHeight );
   VEL_ATTR( bool, green, onGreen );
   VEL_ATTR( double, sap, onSap ); ///< left out of the store
   VEL_ATTR( Vel::Ptr< Leaf >, best, onBest );
   VEL_COUNTER( storms, onStorms );
   VEL_MAP( Vel::String, double, nest, onNest );
   VEL_SET( int, ring, onRing, Ordered );
   VEL_CHILDREN( int, Branch, branch, onBranch );
};

/// Everything below an entity that is stored, in one text; collections in the order of their keys' texts.
Vel::String textOf( Vel::Entity & entity );

/// The kept paths: "forest/a" and "forest/b" in the state folder, "meadow" in the runtime folder.
constexpr const char * statePath = "forest/a";
constexpr const char * otherStatePath = "forest/b";
constexpr const char * runtimePath = "meadow";

/// What a process has of the store: gone when it crashes.
struct Process {
   Process( Ledger::StoreEngine & state, Ledger::StoreEngine & runtime );

   Vel::Ptr< Ledger::EntityManager > em =
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Ledger::Persistence persistence;

   Vel::Ptr< Tree > treeIs( const Vel::String & path );
   Vel::Ptr< Tree > tree( const Vel::String & path ) const;
   /// Everything at the kept paths of both folders, or of one.
   Vel::String text() const { return stateText() + runtimeText(); }
   Vel::String stateText() const { return textAt( statePath ) + textAt( otherStatePath ); }
   Vel::String runtimeText() const { return textAt( runtimePath ); }
   Vel::String textAt( const Vel::String & path ) const;
};

/// A process on disks in memory, behind engines that can fail.
struct World {
   Ledger::MemoryDisk stateDisk, runtimeDisk;
   Ledger::MemoryEngine stateMemory{ "state store", stateDisk };
   Ledger::MemoryEngine runtimeMemory{ "runtime store", runtimeDisk };
   Ledger::FaultEngine state{ stateMemory };
   Ledger::FaultEngine runtime{ runtimeMemory };
   std::unique_ptr< Process > process;

   World() { processIs(); }
   /// A new process that has not been started.
   void processIs();
   /// Drops the process with all that is not committed and starts a new one.
   Ledger::Status restart();
   Ledger::Status commit() { return process->persistence.commit(); }
   Vel::Ptr< Tree > treeIs( const Vel::String & path ) { return process->treeIs( path ); }
   Vel::Ptr< Tree > tree( const Vel::String & path ) { return process->tree( path ); }
};

} // namespace StoreTest
