#include "Platform/Ledger/EntityRestore.h"

namespace Ledger {

Status EntityStore::restore(
   StoreEngine & engine, EntityManager & entityManager, const std::set< Vel::String > & paths ) {
   EntityRestore restore( *this, engine.name(), entityManager, paths );
   using Take = Status ( EntityRestore::* )( std::string_view key, std::string_view value );
   const std::pair< const char *, Take > kinds[] = {
      { "N", &EntityRestore::text },
      { "P", &EntityRestore::place },
      { "V", &EntityRestore::values },
      { "K", &EntityRestore::key },
      { "L", &EntityRestore::longKey } };
   for ( const auto & [tag, take] : kinds ) {
      Status damage;
      const Status status =
         engine.walk( tag, [&, takeIt = take]( std::string_view key, std::string_view value ) {
            damage = ( restore.*takeIt )( key.substr( 1 ), value );
            return damage.ok();
         } );
      if ( !status.ok() || !damage.ok() )
         return status.ok() ? damage : status;
   }
   firstNew_ = nextId_;
   return {};
}

Status EntityRestore::damaged( const Vel::String & what ) const {
   Vel::String where;
   if ( current_.path )
      where.append( *current_.path ).append( ": " );
   where.append( "entity " ).append( std::to_string( id_ ) );
   if ( current_.entity )
      where.append( " (" ).append( current_.entity->typeInfo().name() ).append( ")" );
   return Status::unusable( storeName_ + ": damaged: " + where + ": " + what );
}

Status EntityRestore::text( std::string_view key, std::string_view value ) {
   Vel::ByteReader reader( key );
   const auto number = static_cast< Vel::U16 >( takeNumber( reader, 2 ) );
   if ( reader.failed() || !reader.atEnd() || !store_.texts_.restore( number, value ) )
      return Status::unusable( storeName_ + ": damaged: text " + std::to_string( number ) );
   return {};
}

// Places

Status EntityRestore::place( std::string_view key, std::string_view value ) {
   Vel::ByteReader keyReader( key );
   id_ = takeNumber( keyReader, 8 );
   current_ = {};
   if ( keyReader.failed() || !keyReader.atEnd() || id_ % 2 != store_.remainder_ || id_ < store_.nextId_ )
      return damaged( "no id of this store" );
   store_.nextId_ = id_ + 2;
   Vel::ByteReader reader( value );
   if ( Status status = placeNew( reader ); !status.ok() )
      return status;
   restored_[id_] = current_;
   if ( !current_.entity ) {
      store_.gone_.insert( id_ );
      return {};
   }
   current_.entity->velStoredIs( &store_.changes_, id_ );
   return formed( reader );
}

Status EntityRestore::placeNew( Vel::ByteReader & reader ) {
   const auto parent = readValue< Vel::U64 >( reader );
   const auto attributeNumber = readValue< Vel::U16 >( reader );
   const auto type = readValue< Vel::U16 >( reader );
   const std::string_view key = readSized( reader );
   if ( reader.failed() )
      return damaged( "its place is cut short" );
   const Vel::String * typeName = store_.texts_.text( type );
   if ( !typeName )
      return damaged( "unknown type number " + std::to_string( type ) );
   return parent ? placeInParent( parent, attributeNumber, key, *typeName ) : placeAtPath( key, *typeName );
}

Status EntityRestore::placeAtPath( std::string_view path, const Vel::String & typeName ) {
   const auto known = paths_.find( Vel::String( path ) );
   if ( known == paths_.end() )
      return {};
   current_.path = &*known;
   if ( entityManager_.entity( *known ) )
      return damaged( "the path is taken" );
   try {
      current_.entity = entityManager_.entityIs( *known, typeName ).get();
   } catch ( const Vel::Exception & error ) {
      return damaged( error.what() );
   }
   return {};
}

Status EntityRestore::placeInParent(
   Vel::U64 parent, Vel::U16 attributeNumber, std::string_view key, const Vel::String & typeName ) {
   const auto it = restored_.find( parent );
   if ( it == restored_.end() )
      return damaged( "its parent " + std::to_string( parent ) + " is missing" );
   const Restored & above = it->second;
   if ( !above.entity )
      return {};
   current_.path = above.path;
   const Vel::String * name = store_.texts_.text( attributeNumber );
   if ( !name )
      return damaged( "unknown attribute number " + std::to_string( attributeNumber ) );
   const Vel::AttributeInfo * info = attribute( *above.entity, *name );
   if ( !info || !info->restoreChild )
      return {};
   Vel::ByteReader reader( key );
   Vel::Entity * child = info->restoreChild( *above.entity, reader );
   if ( !child || !reader.atEnd() )
      return damaged( "its key in " + *name + " cannot be read" );
   if ( child->velChanges() )
      return damaged( "its key in " + *name + " is taken" );
   if ( child->typeInfo().name() != typeName )
      return damaged( "is a " + typeName + ", but should be a " + child->typeInfo().name() );
   current_.entity = child;
   return {};
}

// Values

Status EntityRestore::find( Vel::ByteReader & key ) {
   current_ = {};
   id_ = takeNumber( key, 8 );
   const auto it = restored_.find( id_ );
   if ( key.failed() || it == restored_.end() )
      return damaged( "its place is missing" );
   current_ = it->second;
   return {};
}

Status EntityRestore::values( std::string_view key, std::string_view value ) {
   Vel::ByteReader keyReader( key );
   if ( Status status = find( keyReader ); !status.ok() )
      return status;
   if ( !keyReader.atEnd() )
      return damaged( "its values have a wrong key" );
   Vel::ByteReader reader( value );
   return current_.entity ? formed( reader ) : Status();
}

Status EntityRestore::formed( Vel::ByteReader & reader ) {
   const auto number = readValue< Vel::U16 >( reader );
   auto it = forms_.find( number );
   if ( it == forms_.end() ) {
      const Vel::String * text = store_.texts_.text( number );
      std::vector< EntityForm::Field > fields;
      if ( !text || !EntityForm::fields( *text, fields ) )
         return damaged( "unknown form number " + std::to_string( number ) );
      it = forms_.emplace( number, std::move( fields ) ).first;
   }
   for ( const EntityForm::Field & field : it->second ) {
      const std::string_view bytes = field.size ? reader.view( field.size ) : readSized( reader );
      if ( reader.failed() )
         return damaged( "attribute " + field.name + " is cut short" );
      if ( Status status = attributeIs( field, bytes ); !status.ok() )
         return status;
   }
   return reader.atEnd() ? Status() : damaged( "there is more than its attributes" );
}

Status EntityRestore::attributeIs( const EntityForm::Field & field, std::string_view bytes ) {
   const Vel::AttributeInfo * info = attribute( *current_.entity, field.name );
   if ( !info || !info->raw )
      return {};
   Vel::ByteReader reader( bytes );
   info->value->read( reader, info->raw( *current_.entity ) );
   if ( reader.failed() || !reader.atEnd() )
      return damaged( "attribute " + field.name + " cannot be read" );
   return {};
}

const Vel::AttributeInfo *
EntityRestore::attribute( const Vel::Entity & entity, std::string_view name ) const {
   const Vel::AttributeInfo * info = entity.typeInfo().attribute( name );
   return info && info->stored() && !store_.leftOut( entity.typeInfo(), *info ) ? info : nullptr;
}

// Keys

Status EntityRestore::key( std::string_view key, std::string_view value ) {
   Vel::ByteReader reader( key );
   if ( Status status = find( reader ); !status.ok() )
      return status;
   const auto number = static_cast< Vel::U16 >( takeNumber( reader, 2 ) );
   if ( reader.failed() )
      return damaged( "a key is cut short" );
   return keyIs( number, key.substr( sizeof( Vel::U64 ) + sizeof number ), value );
}

Status EntityRestore::longKey( std::string_view key, std::string_view value ) {
   Vel::ByteReader keyReader( key );
   if ( Status status = find( keyReader ); !status.ok() )
      return status;
   const auto number = static_cast< Vel::U16 >( takeNumber( keyReader, 2 ) );
   Vel::ByteReader reader( value );
   const std::string_view longKey = readSized( reader );
   if ( keyReader.failed() || reader.failed() )
      return damaged( "a long key is cut short" );
   return keyIs( number, longKey, value.substr( sizeof( Vel::U32 ) + longKey.size() ) );
}

Status EntityRestore::keyIs( Vel::U16 attributeNumber, std::string_view key, std::string_view value ) {
   if ( !current_.entity )
      return {};
   const Vel::String * name = store_.texts_.text( attributeNumber );
   if ( !name )
      return damaged( "a key of unknown attribute number " + std::to_string( attributeNumber ) );
   const Vel::AttributeInfo * info = attribute( *current_.entity, *name );
   if ( !info || !info->restore )
      return {};
   Vel::ByteReader keyReader( key );
   Vel::ByteReader valueReader( value );
   if (
      !info->restore( *current_.entity, keyReader, valueReader ) || !keyReader.atEnd() ||
      !valueReader.atEnd() )
      return damaged( "a key of " + *name + " cannot be read" );
   return {};
}

} // namespace Ledger
