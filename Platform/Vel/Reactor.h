#pragma once

#include "Platform/Vel/Ptr.h"

/// Purpose: notification. A reactor is bound to one entity and is told of changes of the attributes whose
/// handlers it overrides.
///
/// The contract of notification:
/// 1. A change is delivered synchronously, inside the write, after the new value is stored.
/// 2. The reactors of an entity are told in the order in which they were switched on.
/// 3. A write of an equal value and a delete of an absent key are silent. NaN differs from NaN.
/// 4. Nested writes notify at once, depth first.
/// 5. A reactor may leave during a delivery, also one that has not been told yet: it is not told any more.
/// 6. A reactor that is switched on during a delivery is not told of that change; nothing is ever replayed.
/// 7. A change reaches only the reactors that override the handler of that attribute.
/// 8. An exception from a handler passes through the writer; the reactors behind it are not told.
/// 9. Attaching and leaving cost O(1), whatever the number of reactors.
/// 10. An entity that is destroyed during a delivery ends that delivery.
namespace Vel {

class Entity;

/// Ranks of the declaring macros: the overload with the highest rank is the last attribute that was declared.
template < unsigned N >
struct Rank : Rank< N - 1 > {};
template <>
struct Rank< 0 > {};
/// Attributes a type may have, its base's included.
constexpr unsigned maxAttributes = 63;
using AnyRank = Rank< maxAttributes >;

/// The empty reactor with which the chain of every entity type begins. Owned by whoever reacts; plain
/// pointers.
class Reactor {
 public:
   static constexpr unsigned velIndex = 0;
   static constexpr const char * velName = "";
   template < class R >
   static constexpr U64 velInterest() {
      return 0;
   }
   template < class Builder >
   static void velDescribe( Builder & ) {}

   Reactor( const Reactor & ) = delete;
   Reactor & operator=( const Reactor & ) = delete;

   /// Switches delivery on or off; idempotent. Switched on, the reactor is the last one of its entity.
   void hasNotificationActiveIs( bool active );
   bool hasNotificationActive() const { return interest_ & activeBit; }

   /// The attributes of interest, a bit each. All of them until a holder narrows it; before switching on.
   void velInterestIs( U64 interest ) { interest_ = interest & ~activeBit; }

 protected:
   Reactor() = default;
   virtual ~Reactor();
   /// Takes over one reference to the entity.
   void velBind( const Entity * entity ) { entity_ = entity; }
   /// Leaves the entity's list, then drops the reference: that may destroy the entity.
   void velUnbind();
   const Entity * velEntity() const { return entity_; }

 private:
   friend class Entity;
   friend class Delivery;
   /// No attribute has index 0, so its bit tells whether the reactor is on its entity's list.
   static constexpr U64 activeBit = 1;

   Reactor * next_ = nullptr;
   Reactor * previous_ = nullptr;
   const Entity * entity_ = nullptr;
   U64 interest_ = ~activeBit;
};

/// The last link of the chain of entity type E: the base of all reactors to it.
template < class E >
using LastLink = decltype( E::velChain( AnyRank{} ) );

/// Base of the nested reactor classes: bound to one entity (counted) and to its owner (plain).
///
///     struct VelMonIntf final : Vel::ReactorTo< UnitMonSm, UnitIntfInput > {
///        using ReactorTo::ReactorTo;
///        void onIntf( const Wire::IntfId & intf ) override { sm()->handleMonIntf( intf ); }
///     };
///
/// A handler must be public, so that the holder sees at compile time which ones are overridden.
template < class Owner, class E >
class ReactorTo : public LastLink< E > {
 public:
   using Watched = E;
   ReactorTo( Ptr< const E > entity, Owner * owner ) : owner_( owner ) {
      if ( !entity )
         throw RangeError( "null ValidPtr" );
      this->velBind( entity.velRelease() );
   }
   ~ReactorTo() override { this->velUnbind(); }
   const E * entity() const { return static_cast< const E * >( this->velEntity() ); }
   Owner * sm() const { return owner_; }

 private:
   Owner * owner_;
};

/// The attributes whose handlers R overrides, a bit each.
template < class R >
constexpr U64 interestOf() {
   return LastLink< typename R::Watched >::template velInterest< R >();
}

/// Holds at most one reactor of type R in place. Made switched off; the owner switches it on.
template < class R >
class Watch {
 public:
   Watch() = default;
   ~Watch() { del(); }
   Watch( const Watch & ) = delete;
   Watch & operator=( const Watch & ) = delete;

   /// Replaces the reactor by one built from the arguments. Switched off.
   template < class... Args >
   R & is( Args &&... args ) {
      del();
      reactor_ = new ( storage_ ) R( std::forward< Args >( args )... );
      reactor_->velInterestIs( interestOf< R >() );
      return *reactor_;
   }
   void del() {
      if ( R * gone = std::exchange( reactor_, nullptr ) )
         gone->~R();
   }
   void hasNotificationActiveIs( bool active ) {
      if ( reactor_ )
         reactor_->hasNotificationActiveIs( active );
   }
   R * get() const { return reactor_; }
   R * operator->() const { return reactor_; }
   explicit operator bool() const { return reactor_ != nullptr; }

 private:
   alignas( R ) std::byte storage_[sizeof( R )];
   R * reactor_ = nullptr;
};

} // namespace Vel
