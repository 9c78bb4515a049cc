#include "Platform/Ledger/Persistence.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace Ledger {

namespace {
/// The id of the entity manager, which has no record: it only has to be told of paths that come and go.
constexpr Vel::U64 entityManagerId = 1;
} // namespace

Persistence::Persistence(
   const Vel::Ptr< EntityManager > & entityManager, StoreEngine & stateEngine, StoreEngine & runtimeEngine,
   const std::vector< Kept > & kept, const std::vector< LeftOut > & leftOut )
   : entityManager_( Vel::validPtr( entityManager ) ),
     state_( *this, Folder::state, stateEngine, leftOut ),
     runtime_( *this, Folder::runtime, runtimeEngine, leftOut ) {
   for ( const Kept & path : kept )
      kept_[path.path] = path;
}

Persistence::~Persistence() {
   entityManager_->velStoredIs( nullptr, 0 );
   for ( const auto & [path, kept] : kept_ )
      if ( Vel::Entity * entity = entityManager_->entity( path ); entity && entity->velChanges() )
         storeOf( *entity ).release( *entity );
}

// Start

Status Persistence::start() {
   VEL_ASSERT( !started_, "!started()" );
   for ( const auto & [path, kept] : kept_ )
      VEL_ASSERT( !entityManager_->entity( path ), "!entityManager->entity( path )" );
   for ( Store * store : { &state_, &runtime_ } )
      if ( Status status = open( *store ); !status.ok() )
         return status;
   if ( Status status = readId(); !status.ok() )
      return status;
   if ( runtime_.transaction != state_.transaction )
      runtimeAge_ = runtime_.transaction < state_.transaction ? RuntimeAge::older : RuntimeAge::newer;
   if ( Status status = restore( state_, Folder::state ); !status.ok() )
      return status;
   if ( Status status = restore( runtime_, Folder::runtime ); !status.ok() )
      return status;
   const Status status = state_.engine.walk( "D", [&]( std::string_view key, std::string_view value ) {
      documents_[Vel::String( key.substr( 1 ) )] = Vel::String( value );
      return true;
   } );
   if ( !status.ok() )
      return status;
   entityManager_->velStoredIs( this, entityManagerId );
   started_ = true;
   return {};
}

Status Persistence::open( Store & store ) {
   const Status status = store.engine.open();
   return status.ok() ? readHeader( store ) : status;
}

Status Persistence::readHeader( Store & store ) {
   Vel::String header;
   bool empty = true;
   Status status =
      store.engine.walk( "", [&]( std::string_view, std::string_view ) { return empty = false; } );
   if ( status.ok() )
      status = store.engine.walk( RecordKey::header(), [&]( std::string_view, std::string_view value ) {
         header = value;
         return false;
      } );
   if ( !status.ok() || empty )
      return status;
   Vel::ByteReader reader( header );
   const auto schema = readValue< Vel::U32 >( reader );
   if ( reader.failed() || schema == 0 )
      return Status::unusable( store.engine.name() + ": damaged: its header cannot be read" );
   if ( schema != storeSchema )
      return Status::unusable( Vel::text(
         store.engine.name(), ": was written by ", schema > storeSchema ? "a newer" : "an older",
         " version of this program (format ", schema, "; this one reads ", storeSchema, ")" ) );
   store.transaction = readValue< Vel::U64 >( reader );
   if ( reader.failed() || !reader.atEnd() )
      return Status::unusable( store.engine.name() + ": damaged: its header cannot be read" );
   return {};
}

Status Persistence::readId() {
   const Status status =
      state_.engine.walk( RecordKey::storeId(), [&]( std::string_view, std::string_view value ) {
         id_ = value;
         idIsStored_ = true;
         return false;
      } );
   if ( !status.ok() )
      return status;
   if ( idIsStored_ && id_.size() != storeIdSize )
      return Status::unusable( state_.engine.name() + ": damaged: its id cannot be read" );
   if ( idIsStored_ )
      return {};
   char bytes[storeIdSize];
   if ( getentropy( bytes, sizeof bytes ) != 0 )
      return Status::failure( state_.engine.name() + ": cannot choose an id: " + std::strerror( errno ) );
   id_.assign( bytes, sizeof bytes );
   return {};
}

Status Persistence::restore( Store & store, Folder folder ) {
   std::set< Vel::String > paths;
   for ( const auto & [path, kept] : kept_ )
      if ( kept.folder == folder )
         paths.insert( path );
   if ( Status status = store.entities.restore( store.engine, *entityManager_, paths ); !status.ok() )
      return status;
   for ( const Vel::String & path : paths ) {
      const Vel::Entity * const entity = entityManager_->entity( path );
      const Vel::String & wanted = kept_.at( path ).type;
      if ( entity && !wanted.empty() && entity->typeInfo().name() != wanted )
         return Status::unusable( Vel::text(
            store.engine.name(), ": damaged: ", path, " is a ", entity->typeInfo().name(),
            ", but should be a ", wanted ) );
   }
   return {};
}

// Commit

Status Persistence::commit() {
   VEL_ASSERT( started_, "started()" );
   // Asked also where the state folder fails: it takes out what has changed more than once, turn after turn.
   const bool runtimePending = runtime_.entities.pending();
   if ( state_.entities.pending() || !changedDocuments_.empty() )
      if ( Status status = commitStore( state_, state_.transaction + 1 ); !status.ok() )
         return status;
   if ( runtimePending || runtime_.transaction != state_.transaction )
      return commitStore( runtime_, state_.transaction );
   return {};
}

Status Persistence::commitStore( Store & store, Vel::U64 transaction ) {
   Status status = store.engine.begin();
   if ( status.ok() ) {
      status = write( store, transaction );
      if ( status.ok() )
         status = store.engine.commit();
      else
         store.engine.abort();
   }
   store.entities.written( status.ok() );
   if ( !status.ok() )
      return status;
   store.transaction = transaction;
   if ( &store == &state_ ) {
      changedDocuments_.clear();
      idIsStored_ = true;
   }
   return status;
}

Status Persistence::write( Store & store, Vel::U64 transaction ) {
   Vel::String header;
   writeValue( header, storeSchema );
   writeValue( header, transaction );
   if ( Status status = store.engine.put( RecordKey::header(), header ); !status.ok() )
      return status;
   if ( &store == &state_ && !idIsStored_ )
      if ( Status status = store.engine.put( RecordKey::storeId(), id_ ); !status.ok() )
         return status;
   if ( &store == &state_ )
      for ( const Vel::String & name : changedDocuments_ ) {
         const Vel::String * bytes = document( name );
         const RecordKey key = RecordKey::document( name );
         if ( Status status = bytes ? store.engine.put( key, *bytes ) : store.engine.del( key );
              !status.ok() )
            return status;
      }
   return store.entities.write( store.engine );
}

// Documents

void Persistence::documentIs( const Vel::String & name, const Vel::String & bytes ) {
   if ( name.empty() || name.size() >= StoreEngine::maxKey )
      throw Vel::RangeError( "a document's name has 1 to 510 bytes" );
   const auto [it, inserted] = documents_.try_emplace( name, bytes );
   if ( !inserted && it->second == bytes )
      return;
   it->second = bytes;
   changedDocuments_.insert( name );
}

bool Persistence::documentDel( const Vel::String & name ) {
   if ( !documents_.erase( name ) )
      return false;
   changedDocuments_.insert( name );
   return true;
}

const Vel::String * Persistence::document( const Vel::String & name ) const {
   const auto it = documents_.find( name );
   return it == documents_.end() ? nullptr : &it->second;
}

// Changes

EntityStore & Persistence::storeOf( const Vel::Entity & entity ) {
   return ( entity.velStoreId() % 2 == static_cast< unsigned >( Folder::state ) ? state_ : runtime_ )
      .entities;
}

void Persistence::entityChanged( Vel::Entity & entity ) { storeOf( entity ).entityChanged( entity ); }

void Persistence::keyChanged( Vel::Entity & entity, unsigned attribute, std::string_view key ) {
   storeOf( entity ).keyChanged( entity, attribute, key );
}

void Persistence::childAdded(
   Vel::Entity & entity, unsigned attribute, std::string_view key, Vel::Entity & child ) {
   if ( &entity != entityManager_.get() )
      return storeOf( entity ).addChild( entity, attribute, key, child );
   Vel::ByteReader reader( key );
   const auto path = readValue< Vel::String >( reader );
   const auto it = kept_.find( path );
   if ( it != kept_.end() )
      ( it->second.folder == Folder::state ? state_ : runtime_ ).entities.add( child, path );
}

void Persistence::childRemoved( Vel::Entity &, Vel::Entity & child ) {
   if ( child.velChanges() )
      storeOf( child ).forget( child );
}

} // namespace Ledger
