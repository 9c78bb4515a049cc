#pragma once

#include "Platform/Ledger/EntityManager.h"
#include "Platform/Ledger/EntityStore.h"

namespace Ledger {

/// Purpose: makes entities from the records of one store. First the places in the order of ids, parents
/// before children; then values and keys.
/// Owner: the call of EntityStore::restore().
///
/// A failure names the store, the path, the entity and what is wrong with the record.
class EntityRestore {
 public:
   EntityRestore(
      EntityStore & store, const Vel::String & storeName, EntityManager & entityManager,
      const std::set< Vel::String > & paths )
      : store_( store ), storeName_( storeName ), entityManager_( entityManager ), paths_( paths ) {}

   Status text( std::string_view key, std::string_view value );
   Status place( std::string_view key, std::string_view value );
   Status values( std::string_view key, std::string_view value );
   Status key( std::string_view key, std::string_view value );
   Status longKey( std::string_view key, std::string_view value );

 private:
   struct Restored {
      Vel::Entity * entity = nullptr; ///< null: given up
      const Vel::String * path = nullptr;
   };

   Status placeNew( Vel::ByteReader & reader );
   Status placeAtPath( std::string_view path, const Vel::String & typeName );
   Status
   placeInParent( Vel::U64 parent, Vel::U16 attribute, std::string_view key, const Vel::String & typeName );
   /// Makes the entity of a record, whose id the reader is at, the current one.
   Status find( Vel::ByteReader & key );
   /// Reads what a form tells: parameters or values.
   Status formed( Vel::ByteReader & reader );
   Status attributeIs( const EntityForm::Field & field, std::string_view bytes );
   Status keyIs( Vel::U16 attribute, std::string_view key, std::string_view value );
   const Vel::AttributeInfo * attribute( const Vel::Entity & entity, std::string_view name ) const;
   Status damaged( const Vel::String & what ) const;

   EntityStore & store_;
   const Vel::String & storeName_;
   EntityManager & entityManager_;
   const std::set< Vel::String > & paths_;
   std::unordered_map< Vel::U64, Restored > restored_;
   std::unordered_map< Vel::U16, std::vector< EntityForm::Field > > forms_;
   Vel::U64 id_ = 0; ///< of the entity whose record is looked at
   Restored current_;
};

} // namespace Ledger
