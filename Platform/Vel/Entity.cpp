#include "Platform/Vel/Entity.h"

namespace Vel {

Reactor::~Reactor() { hasNotificationActiveIs( false ); }

void Reactor::hasNotificationActiveIs( bool active ) {
   if ( active == hasNotificationActive() || !entity_ )
      return;
   if ( active )
      entity_->velAttach( *this );
   else
      entity_->velDetach( *this );
}

void Reactor::velUnbind() {
   hasNotificationActiveIs( false );
   if ( const Entity * entity = std::exchange( entity_, nullptr ) )
      entity->velUnref();
}

Entity::~Entity() {
   for ( Delivery * delivery = deliveries_; delivery; delivery = delivery->outer_ ) {
      delivery->entity_ = nullptr;
      delivery->next_ = nullptr;
   }
   while ( first_ ) {
      Reactor & reactor = *first_;
      velDetach( reactor );
      reactor.entity_ = nullptr;
   }
}

void Entity::velDoZombieReactors( bool ) {}

U32 Entity::velReactors() const {
   U32 count = 0;
   for ( const Reactor * reactor = first_; reactor; reactor = reactor->next_ )
      ++count;
   return count;
}

void Entity::velAttach( Reactor & reactor ) const {
   reactor.previous_ = last_;
   reactor.next_ = nullptr;
   ( last_ ? last_->next_ : first_ ) = &reactor;
   last_ = &reactor;
   interest_ |= reactor.interest_;
   reactor.interest_ |= Reactor::activeBit;
}

void Entity::velDetach( Reactor & reactor ) const {
   for ( Delivery * delivery = deliveries_; delivery; delivery = delivery->outer_ ) {
      const bool wasLast = delivery->last_ == &reactor;
      if ( delivery->next_ == &reactor )
         delivery->next_ = wasLast ? nullptr : reactor.next_;
      if ( wasLast )
         delivery->last_ = reactor.previous_;
   }
   ( reactor.previous_ ? reactor.previous_->next_ : first_ ) = reactor.next_;
   ( reactor.next_ ? reactor.next_->previous_ : last_ ) = reactor.previous_;
   reactor.next_ = reactor.previous_ = nullptr;
   reactor.interest_ &= ~Reactor::activeBit;
   if ( !first_ )
      interest_ = 0;
}

void Entity::velStoredIs( Changes * changes, U64 storeId ) {
   changes_ = changes;
   storeId_ = storeId;
   velFlags_ = changes ? storedFlag : markedFlag;
}

void Entity::velMark() {
   velFlags_ |= markedFlag;
   changes_->entityChanged( *this );
}

void Entity::velMarkKey( unsigned attribute, const ValueType & type, const void * key ) {
   String bytes;
   ByteWriter writer( bytes );
   type.write( writer, key );
   changes_->keyChanged( *this, attribute, bytes );
}

void Entity::velMarkChild(
   unsigned attribute, const ValueType & type, const void * key, Entity * added, Entity * removed ) {
   if ( removed )
      changes_->childRemoved( *this, *removed );
   if ( !added )
      return;
   String bytes;
   ByteWriter writer( bytes );
   type.write( writer, key );
   changes_->childAdded( *this, attribute, bytes, *added );
}

} // namespace Vel
