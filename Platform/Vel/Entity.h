#pragma once

#include "Platform/Vel/Changes.h"
#include "Platform/Vel/Reactor.h"
#include "Platform/Vel/Type.h"

/// Purpose: base of everything in the entity model. Types are declared with the macros of Declare.h.
/// Owner: whoever holds a counted pointer; an entity in a collection is held by the collection.
namespace Vel {

/// A change on its way through an entity's reactors. Lives on the stack of the writer.
class Delivery {
 public:
   explicit Delivery( const Entity & entity );
   ~Delivery();
   Delivery( const Delivery & ) = delete;
   Delivery & operator=( const Delivery & ) = delete;

   /// The next reactor to tell, null when all that were there at the beginning have had their turn.
   Reactor * take() {
      Reactor * const reactor = next_;
      if ( reactor )
         next_ = reactor == last_ ? nullptr : reactor->next_;
      return reactor;
   }

 private:
   friend class Entity;
   const Entity * entity_;
   Reactor * next_;
   Reactor * last_;
   Delivery * outer_;
};

class Entity : public PtrInterface {
 public:
   /// The type of this object, with everything that was declared for it.
   virtual const TypeInfo & typeInfo() const = 0;

   /// Switches all reactors that this entity owns off (`on` true: they are zombies) or on again.
   virtual void velDoZombieReactors( bool on );

   /// The number of reactors that are switched on.
   U32 velReactors() const;

   /// Where changes of this entity are noted, null while it is not stored.
   Changes * velChanges() const { return changes_; }
   /// The id under which it is stored, 0 while it is not stored.
   U64 velStoreId() const { return storeId_; }
   void velStoredIs( Changes * changes, U64 storeId );
   /// The next change is noted again. Called by the store when it has taken the values.
   void velMarkDel() { velFlags_ &= ~markedFlag; }

 protected:
   Entity() { velFlags_ = markedFlag; }
   ~Entity() override;

   /// Every write of an attribute ends here: note the change for the store, then tell who is interested.
   template < class Link, class Call >
   void velChanged( Call call ) {
      if ( !( velFlags_ & markedFlag ) )
         velMark();
      if ( interest_ & Link::velBit )
         velDeliver< Link >( call );
   }

   /// Every write of a key of a set or map ends here. Calls come last on each path and all but the one of a single
   /// reactor are apart, so that writing a key that is there needs no frame.
   template < class Link, class Key, class Call >
   void velKeyChanged( const Key & key, Call call ) {
      if ( velFlags_ & storedFlag ) [[unlikely]]
         return velStoredKeyChanged< Link >( key, call );
      velDeliverOfKey< Link >( call );
   }

   /// A child was put under the key or taken away; null where it does not apply.
   template < class Link, class Key, class Call >
   void velChildChanged( const Key & key, Entity * added, Entity * removed, Call call ) {
      if ( velFlags_ & storedFlag )
         velMarkChild( Link::velIndex, Vel::valueType< Key >(), &key, added, removed );
      velDeliverOfKey< Link >( call );
   }

 private:
   friend class Reactor;
   friend class Delivery;
   /// Set: there is nothing to note (not stored, or noted already). One test on the path of every write.
   static constexpr U32 markedFlag = 1;
   static constexpr U32 storedFlag = 2;

   template < class Link, class Key, class Call >
   [[gnu::noinline]] void velStoredKeyChanged( const Key & key, Call call ) {
      velMarkKey( Link::velIndex, Vel::valueType< Key >(), &key );
      velDeliverOfKey< Link >( call );
   }
   template < class Link, class Call >
   void velDeliverOfKey( Call call ) const {
      if ( !( interest_ & Link::velBit ) )
         return;
      if ( first_ == last_ && velInterested( *first_, Link::velBit ) ) [[likely]]
         return call( static_cast< Link & >( *first_ ) );
      velDeliverApart< Link >( call );
   }
   template < class Link, class Call >
   [[gnu::noinline]] void velDeliverApart( Call call ) const {
      velDeliver< Link >( call );
   }
   template < class Link, class Call >
   void velDeliver( Call & call ) const {
      // With a single reactor there is nothing to go on to, so nothing that happens meanwhile can matter.
      if ( Reactor * only = first_; only == last_ ) {
         if ( velInterested( *only, Link::velBit ) )
            call( static_cast< Link & >( *only ) );
         return;
      }
      Delivery delivery( *this );
      while ( Reactor * reactor = delivery.take() )
         if ( velInterested( *reactor, Link::velBit ) )
            call( static_cast< Link & >( *reactor ) );
   }
   static bool velInterested( const Reactor & reactor, U64 bit ) { return reactor.interest_ & bit; }
   void velMark();
   void velMarkKey( unsigned attribute, const ValueType & type, const void * key );
   void velMarkChild(
      unsigned attribute, const ValueType & type, const void * key, Entity * added, Entity * removed );
   void velAttach( Reactor & reactor ) const;
   void velDetach( Reactor & reactor ) const;

   mutable U64 interest_ = 0; ///< what any reactor is interested in; exact or too much, never too little
   mutable Reactor * first_ = nullptr;
   mutable Reactor * last_ = nullptr;
   mutable Delivery * deliveries_ = nullptr;
   Changes * changes_ = nullptr;
   U64 storeId_ = 0;
};

inline Delivery::Delivery( const Entity & entity )
   : entity_( &entity ), next_( entity.first_ ), last_( entity.last_ ), outer_( entity.deliveries_ ) {
   entity.deliveries_ = this;
}

inline Delivery::~Delivery() {
   if ( entity_ )
      entity_->deliveries_ = outer_;
}

} // namespace Vel
