#pragma once

#include "Platform/Ledger/EntityForm.h"
#include "Platform/Ledger/Records.h"

#include <set>
#include <unordered_set>

namespace Ledger {

class EntityManager;

/// An attribute that the store does not keep although it could: one that is derived from others and written
/// again on each start. A write of it alone writes nothing to the store.
struct LeftOut {
   Vel::String typeName;
   Vel::String attribute;
};

/// Purpose: the entities that are kept in one store engine: which there are, what of them has changed, how
/// they are written and how they come back.
/// Owner: Persistence, which also runs the transactions.
///
/// Invariants:
/// 1. An entity that is kept has an id, and `changes` is told of its changes. Ids rise, none is given twice,
///    and they give the remainder `remainder` when divided by 2: so one look at an id tells its store. A
///    parent's id is below its children's.
/// 2. What has changed since the last successful transaction is known and stays known until one succeeds.
/// 3. Plain pointers to entities are kept for those only that are kept in the store; forget() comes before an
///    entity can be destroyed.
/// 4. The types of entities that are kept stay loaded.
class EntityStore {
 public:
   EntityStore( Vel::Changes & changes, unsigned remainder, const std::vector< LeftOut > & leftOut )
      : changes_( changes ), remainder_( remainder ), nextId_( remainder + 2 ), leftOut_( leftOut ) {}
   EntityStore( const EntityStore & ) = delete;
   EntityStore & operator=( const EntityStore & ) = delete;

   /// Brings back what the engine holds: entities at `paths`, which are absent, and everything below them.
   /// Silent but for the paths themselves. Entities at other paths, and what their types do not have any
   /// more, are given up and deleted with the next transaction. Fails for a damaged record; the entities are
   /// then incomplete.
   Status
   restore( StoreEngine & engine, EntityManager & entityManager, const std::set< Vel::String > & paths );

   /// Keeps an entity and all below it from now on: at a path, or as a child of one that is kept.
   void add( Vel::Entity & entity, const Vel::String & path );
   void addChild( const Vel::Entity & parent, unsigned attribute, std::string_view key, Vel::Entity & child );
   /// Does not keep an entity and all below it any more: their records are deleted.
   void forget( Vel::Entity & entity );
   /// The same, but their records stay.
   void release( Vel::Entity & entity );

   void entityChanged( Vel::Entity & entity );
   void keyChanged( Vel::Entity & entity, unsigned attribute, std::string_view key );

   /// Whether there is anything to write.
   bool pending();
   /// Writes what pending() has found, within a transaction. Then written() tells how the transaction ended.
   Status write( StoreEngine & engine );
   void written( bool committed );

 private:
   friend class EntityRestore;
   struct Field {
      const Vel::AttributeInfo * info;
      Vel::U16 name;
   };
   /// What is kept of a type.
   struct Layout {
      Vel::U16 type = 0, paramsForm = 0, valuesForm = 0;
      EntityForm params, values;
      std::vector< Field > keyed, children;
      bool leavesOut = false;
   };
   struct Added {
      Vel::U64 id;
      Vel::Entity * entity;
      Vel::U64 parent;
      Vel::U16 attribute;
      Vel::String key;
   };
   struct Changed {
      Vel::U64 id;
      Vel::Entity * entity;
      const Layout * layout;
   };
   struct ChangedKey {
      Vel::U64 id;
      Vel::Entity * entity;
      const Field * field;
      Vel::String key;
   };

   const Layout & layout( const Vel::Entity & entity );
   Layout layoutNew( Vel::Entity & sample );
   bool leftOut( const Vel::TypeInfo & info, const Vel::AttributeInfo & attribute ) const;
   void addTree( Vel::Entity & entity, Vel::U64 parent, Vel::U16 attribute, std::string_view key );
   template < class Call >
   void eachKept( Vel::Entity & entity, const Call & call );
   /// Whether no transaction has tried to write the entity: all of it will be written.
   bool isNew( Vel::U64 id ) const { return id >= firstNew_; }
   void compact();
   void dropUnchanged();
   void values( Vel::String & out, const Vel::Entity & entity, const Layout & kept ) const;
   Status deleteGone( StoreEngine & engine, Vel::U64 id );
   Status writeAdded( StoreEngine & engine, const Added & added );
   Status writeValues( StoreEngine & engine, Vel::U64 id, const Vel::Entity & entity, const Layout & kept );
   Status writeKey( StoreEngine & engine, const ChangedKey & changed );
   Status
   putKey( StoreEngine & engine, Vel::U64 id, const Field & field, std::string_view key, const void * item );

   Vel::Changes & changes_;
   const unsigned remainder_;
   Vel::U64 nextId_;
   Vel::U64 firstNew_ = 0;
   StoreTexts texts_;
   std::vector< LeftOut > leftOut_;
   std::unordered_map< const Vel::TypeInfo *, Layout > layouts_; ///< entries stay where they are

   std::vector< Added > added_;
   std::vector< Changed > changed_;
   std::vector< ChangedKey > changedKeys_;
   std::unordered_set< Vel::U64 > gone_;
   /// What was last written of entities that leave attributes out.
   std::unordered_map< Vel::U64, Vel::String > lastValues_;
   Vel::String buffer_; ///< kept for its room
};

} // namespace Ledger
