#pragma once

#include "Platform/Ledger/EntityManager.h"
#include "Platform/Ledger/EntityStore.h"

#include <map>

namespace Ledger {

/// Purpose: keeps chosen entities of the state store, and documents of the agent, across restarts, in two
/// engines. What must not be lost, whatever happens, belongs to the state folder, whose engine syncs each
/// commit. What is written all the time and may be lost with the system, but not with the process, belongs to
/// the runtime folder.
/// Owner: the agent; made before the entities, destroyed when nothing is written any more. Destroying it
/// writes nothing.
///
/// Order: start(), then any writes of entities, and commit() once a turn.
///
/// Invariants:
/// 1. A path that is kept, is kept with everything below it: children, sets, maps, attributes, constructor
///    parameters. An entity that leaves its collection is deleted from the store, although it may live on.
/// 2. commit() writes what has changed and nothing else. The state folder is not touched by a turn that
///    changed nothing in it. It is committed first; the runtime folder carries its transaction number.
/// 3. A commit that fails leaves everything to be written by the next one, which needs no further change.
/// 4. The state folder has an id from its first commit on, which no other has: what belongs to it can be told from what
///    belongs to another one (RecordKey::storeId()).
/// 5. What comes back after a crash, in each folder, is what one commit has written, the last one or (if the
///    crash fell into a commit) the one before.
class Persistence final : private Vel::Changes {
 public:
   enum class Folder { state, runtime };
   struct Kept {
      Vel::String path;
      Folder folder;
      Vel::String type = {}; ///< that the entity there has to have; empty: whatever the store says
   };
   /// What the runtime folder's transaction number says at start. Its records are taken over in any case;
   /// with another number they may not fit the state folder's.
   enum class RuntimeAge { same, older, newer };

   /// The engines outlive it.
   Persistence(
      const Vel::Ptr< EntityManager > & entityManager, StoreEngine & stateEngine, StoreEngine & runtimeEngine,
      const std::vector< Kept > & kept, const std::vector< LeftOut > & leftOut = {} );
   ~Persistence();
   Persistence( const Persistence & ) = delete;
   Persistence & operator=( const Persistence & ) = delete;

   /// Opens the engines and brings back what they hold: none of the kept paths exists yet. Only the paths
   /// themselves are told to reactors. Fails, naming the store, if it cannot be opened, was written by
   /// another version, or is damaged; then nothing is written to it, and the process should end. The last two are
   /// unusable: it will fail again.
   Status start();
   /// After start().
   RuntimeAge runtimeAge() const { return runtimeAge_; }

   /// Writes what has changed since the last commit that succeeded. A failure names the store; see invariant
   /// 3. The agent is degraded until a commit succeeds.
   Status commit();

   /// Documents: bytes of the agent under a name of 1 to 510 bytes, in the state folder. Kept in memory too.
   /// A name of another length throws Vel::RangeError.
   void documentIs( const Vel::String & name, const Vel::String & bytes );
   /// False: there was none.
   bool documentDel( const Vel::String & name );
   /// Null if absent.
   const Vel::String * document( const Vel::String & name ) const;
   /// All of them in the order of names, so that those with a common beginning lie together.
   const std::map< Vel::String, Vel::String > & documents() const { return documents_; }

 private:
   struct Store {
      Store(
         Vel::Changes & changes, Folder folder, StoreEngine & storeEngine,
         const std::vector< LeftOut > & leftOut )
         : engine( storeEngine ), entities( changes, static_cast< unsigned >( folder ), leftOut ) {}
      StoreEngine & engine;
      EntityStore entities;
      Vel::U64 transaction = 0; ///< as the engine holds it
   };

   void entityChanged( Vel::Entity & entity ) override;
   void keyChanged( Vel::Entity & entity, unsigned attribute, std::string_view key ) override;
   void
   childAdded( Vel::Entity & entity, unsigned attribute, std::string_view key, Vel::Entity & child ) override;
   void childRemoved( Vel::Entity & entity, Vel::Entity & child ) override;

   EntityStore & storeOf( const Vel::Entity & entity );
   Status open( Store & store );
   Status readHeader( Store & store );
   Status readId();
   Status restore( Store & store, Folder folder );
   Status commitStore( Store & store, Vel::U64 transaction );
   Status write( Store & store, Vel::U64 transaction );

   const Vel::Ptr< EntityManager > entityManager_;
   Store state_;
   Store runtime_;
   std::map< Vel::String, Kept > kept_; ///< by path
   std::map< Vel::String, Vel::String > documents_;
   std::set< Vel::String > changedDocuments_;
   Vel::String id_; ///< of the state folder
   bool idIsStored_ = false;
   RuntimeAge runtimeAge_ = RuntimeAge::same;
   bool started_ = false;
};

} // namespace Ledger
