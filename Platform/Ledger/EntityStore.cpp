#include "Platform/Ledger/EntityStore.h"

#include <algorithm>
#include <tuple>

namespace Ledger {

namespace {
/// Walks a collection; calls call( key, item ).
template < class Call >
void each( const Vel::AttributeInfo & info, Vel::Entity & entity, Call call ) {
   info.each( entity, &call, []( void * context, const void * key, const void * item ) {
      ( *static_cast< Call * >( context ) )( key, item );
   } );
}

Vel::String bytesOf( const Vel::ValueType & type, const void * value ) {
   Vel::String result;
   Vel::ByteWriter writer( result );
   type.write( writer, value );
   return result;
}

Vel::Entity & childOf( const void * item ) {
   // What is visited as const is a child that the collection holds as it is.
   return *const_cast< Vel::Entity * >( static_cast< const Vel::Entity * >( item ) );
}
} // namespace

// What there is

const EntityStore::Layout & EntityStore::layout( const Vel::Entity & entity ) {
   const Vel::TypeInfo & info = entity.typeInfo();
   const auto it = layouts_.find( &info );
   if ( it != layouts_.end() )
      return it->second;
   // Descriptions take entities that may be written; here the sample is only looked at.
   return layouts_.emplace( &info, layoutNew( const_cast< Vel::Entity & >( entity ) ) ).first->second;
}

EntityStore::Layout EntityStore::layoutNew( Vel::Entity & sample ) {
   const Vel::TypeInfo & info = sample.typeInfo();
   Layout result;
   for ( const Vel::AttributeInfo & attribute : info.attributes() ) {
      if ( !attribute.stored() )
         continue;
      if ( leftOut( info, attribute ) ) {
         result.leavesOut = true;
         continue;
      }
      switch ( attribute.kind ) {
      case Vel::AttributeInfo::param:
         result.params.attributeIs( attribute, sample );
         break;
      case Vel::AttributeInfo::attribute:
      case Vel::AttributeInfo::counter:
         result.values.attributeIs( attribute, sample );
         break;
      case Vel::AttributeInfo::set:
      case Vel::AttributeInfo::map:
         result.keyed.push_back( { &attribute, texts_.number( attribute.name ) } );
         break;
      case Vel::AttributeInfo::children:
         result.children.push_back( { &attribute, texts_.number( attribute.name ) } );
         break;
      case Vel::AttributeInfo::reactors:
         break;
      }
   }
   result.type = texts_.number( info.name() );
   result.paramsForm = texts_.number( result.params.text() );
   result.valuesForm = texts_.number( result.values.text() );
   return result;
}

bool EntityStore::leftOut( const Vel::TypeInfo & info, const Vel::AttributeInfo & attribute ) const {
   return std::any_of( leftOut_.begin(), leftOut_.end(), [&]( const LeftOut & leftOut ) {
      return leftOut.typeName == info.name() && leftOut.attribute == attribute.name;
   } );
}

template < class Call >
void EntityStore::eachKept( Vel::Entity & entity, const Call & call ) {
   for ( const Field & field : layout( entity ).children )
      each( *field.info, entity, [&]( const void * key, const void * item ) {
         call( field, key, childOf( item ) );
      } );
}

void EntityStore::add( Vel::Entity & entity, const Vel::String & path ) { addTree( entity, 0, 0, path ); }

void EntityStore::addChild(
   const Vel::Entity & parent, unsigned attribute, std::string_view key, Vel::Entity & child ) {
   for ( const Field & field : layout( parent ).children )
      if ( field.info->index == attribute )
         addTree( child, parent.velStoreId(), field.name, key );
}

void EntityStore::addTree( Vel::Entity & entity, Vel::U64 parent, Vel::U16 attribute, std::string_view key ) {
   // An entity that is a child of two would come back as two.
   VEL_ASSERT( !entity.velChanges(), "!entity.velChanges()" );
   const Vel::U64 id = nextId_;
   nextId_ += 2;
   entity.velStoredIs( &changes_, id );
   added_.push_back( { id, &entity, parent, attribute, Vel::String( key ) } );
   eachKept( entity, [&]( const Field & field, const void * childKey, Vel::Entity & child ) {
      addTree( child, id, field.name, bytesOf( *field.info->key, childKey ) );
   } );
}

void EntityStore::forget( Vel::Entity & entity ) {
   gone_.insert( entity.velStoreId() );
   lastValues_.erase( entity.velStoreId() );
   entity.velStoredIs( nullptr, 0 );
   eachKept( entity, [&]( const Field &, const void *, Vel::Entity & child ) { forget( child ); } );
}

void EntityStore::release( Vel::Entity & entity ) {
   entity.velStoredIs( nullptr, 0 );
   eachKept( entity, [&]( const Field &, const void *, Vel::Entity & child ) { release( child ); } );
}

// What has changed

void EntityStore::entityChanged( Vel::Entity & entity ) {
   const Vel::U64 id = entity.velStoreId();
   if ( isNew( id ) )
      return;
   const Layout & kept = layout( entity );
   if ( !kept.values.empty() )
      changed_.push_back( { id, &entity, &kept } );
}

void EntityStore::keyChanged( Vel::Entity & entity, unsigned attribute, std::string_view key ) {
   const Vel::U64 id = entity.velStoreId();
   if ( isNew( id ) )
      return;
   for ( const Field & field : layout( entity ).keyed )
      if ( field.info->index == attribute )
         changedKeys_.push_back( { id, &entity, &field, Vel::String( key ) } );
}

bool EntityStore::pending() {
   compact();
   dropUnchanged();
   return !added_.empty() || !changed_.empty() || !changedKeys_.empty() || !gone_.empty();
}

/// Takes out what is gone and what stands there twice, so that it does not grow while transactions fail.
void EntityStore::compact() {
   if ( !gone_.empty() ) {
      const auto isGone = [&]( const auto & entry ) { return gone_.contains( entry.id ); };
      std::erase_if( added_, isGone );
      std::erase_if( changed_, isGone );
      std::erase_if( changedKeys_, isGone );
      std::erase_if( gone_, [&]( Vel::U64 id ) { return isNew( id ); } );
   }
   const auto order = []( const ChangedKey & changed ) {
      return std::tie( changed.id, changed.field, changed.key );
   };
   std::sort( changedKeys_.begin(), changedKeys_.end(), [&]( const ChangedKey & a, const ChangedKey & b ) {
      return order( a ) < order( b );
   } );
   const auto equal = [&]( const ChangedKey & a, const ChangedKey & b ) { return order( a ) == order( b ); };
   changedKeys_.erase( std::unique( changedKeys_.begin(), changedKeys_.end(), equal ), changedKeys_.end() );
}

/// Takes out entities of which only attributes have changed that are left out.
void EntityStore::dropUnchanged() {
   std::erase_if( changed_, [&]( const Changed & changed ) {
      if ( !changed.layout->leavesOut )
         return false;
      const auto last = lastValues_.find( changed.id );
      if ( last == lastValues_.end() )
         return false;
      buffer_.clear();
      values( buffer_, *changed.entity, *changed.layout );
      if ( buffer_ != last->second )
         return false;
      changed.entity->velMarkDel();
      return true;
   } );
}

// Writing

Status EntityStore::write( StoreEngine & engine ) {
   firstNew_ = nextId_;
   for ( const Vel::U64 id : gone_ )
      if ( Status status = deleteGone( engine, id ); !status.ok() )
         return status;
   for ( const Added & added : added_ )
      if ( Status status = writeAdded( engine, added ); !status.ok() )
         return status;
   for ( const Changed & changed : changed_ )
      if ( Status status = writeValues( engine, changed.id, *changed.entity, *changed.layout ); !status.ok() )
         return status;
   for ( const ChangedKey & changed : changedKeys_ )
      if ( Status status = writeKey( engine, changed ); !status.ok() )
         return status;
   return texts_.write( engine );
}

void EntityStore::written( bool committed ) {
   if ( !committed ) {
      // What the store holds of them is not known now.
      lastValues_.clear();
      return;
   }
   for ( const Added & added : added_ )
      added.entity->velMarkDel();
   for ( const Changed & changed : changed_ )
      changed.entity->velMarkDel();
   added_.clear();
   changed_.clear();
   changedKeys_.clear();
   gone_.clear();
   texts_.writtenIs();
}

Status EntityStore::deleteGone( StoreEngine & engine, Vel::U64 id ) {
   Status status = engine.del( RecordKey::place( id ) );
   if ( status.ok() )
      status = engine.del( RecordKey::values( id ) );
   if ( status.ok() )
      status = engine.delAll( RecordKey::keys( id ) );
   return status.ok() ? engine.delAll( RecordKey::longKeys( id ) ) : status;
}

Status EntityStore::writeAdded( StoreEngine & engine, const Added & added ) {
   const Layout & kept = layout( *added.entity );
   Vel::String place;
   writeValue( place, added.parent );
   writeValue( place, added.attribute );
   writeValue( place, kept.type );
   writeSized( place, added.key );
   writeValue( place, kept.paramsForm );
   kept.params.write( place, *added.entity );
   if ( Status status = engine.put( RecordKey::place( added.id ), place ); !status.ok() )
      return status;
   if ( Status status = writeValues( engine, added.id, *added.entity, kept ); !status.ok() )
      return status;
   for ( const Field & field : kept.keyed ) {
      Status status;
      each( *field.info, *added.entity, [&]( const void * key, const void * item ) {
         if ( status.ok() )
            status = putKey( engine, added.id, field, bytesOf( *field.info->key, key ), item );
      } );
      if ( !status.ok() )
         return status;
   }
   return {};
}

Status EntityStore::writeValues(
   StoreEngine & engine, Vel::U64 id, const Vel::Entity & entity, const Layout & kept ) {
   if ( kept.values.empty() )
      return {};
   buffer_.clear();
   values( buffer_, entity, kept );
   if ( kept.leavesOut )
      lastValues_[id] = buffer_;
   return engine.put( RecordKey::values( id ), buffer_ );
}

void EntityStore::values( Vel::String & out, const Vel::Entity & entity, const Layout & kept ) const {
   writeValue( out, kept.valuesForm );
   kept.values.write( out, entity );
}

Status EntityStore::writeKey( StoreEngine & engine, const ChangedKey & changed ) {
   Vel::ByteReader reader( changed.key );
   if ( const void * item = changed.field->info->find( *changed.entity, reader ) )
      return putKey( engine, changed.id, *changed.field, changed.key, item );
   bool tooLong;
   return engine.del( RecordKey::ofKey( changed.id, changed.field->name, changed.key, tooLong ) );
}

Status EntityStore::putKey(
   StoreEngine & engine, Vel::U64 id, const Field & field, std::string_view key, const void * item ) {
   bool tooLong;
   const RecordKey record = RecordKey::ofKey( id, field.name, key, tooLong );
   buffer_.clear();
   if ( tooLong )
      writeSized( buffer_, key );
   if ( field.info->value ) {
      Vel::ByteWriter writer( buffer_ );
      field.info->value->write( writer, item );
   }
   return engine.put( record, buffer_ );
}

} // namespace Ledger
