#pragma once

#include "Platform/Vel/SlotIndex.h"

#include <memory>
#include <utility>

/// Purpose: the containers behind keyed collections.
///
/// Invariants:
/// 1. Iteration order is fixed: order of insertion (hash) or of keys (ordered); one seed gives one story.
/// 2. The first element, size, look-up, insertion and removal cost O(1) (hash) or O(log n) (ordered).
/// 3. While the collection is walked, any key may be removed, also the current one, and any key may be added.
///    A removed key is not visited; an added one is visited if the walk has not passed its place. The key that
///    the walk stands on stays readable until the walk goes on, its value does not.
/// 4. Walks nest like scopes: a walk that began later ends earlier.
namespace Vel {

/// Value of a set: there is none.
struct NoValue {
   friend bool operator==( NoValue, NoValue ) { return true; }
};

template < class Key, class Value, class Order = Hashed >
class Collection {
   using Slot = Vel::Slot< Key, Value >;

 public:
   Collection() = default;
   ~Collection() {
      // The values find the collection empty when they are destroyed.
      index_.clear();
      size_ = 0;
      last_ = nullptr;
      for ( Slot * slot = std::exchange( first_, nullptr ); slot; )
         delete std::exchange( slot, slot->next );
   }
   Collection( const Collection & ) = delete;
   Collection & operator=( const Collection & ) = delete;

   U32 size() const { return size_; }
   bool empty() const { return !first_; }
   const Key * firstKey() const { return first_ ? &first_->key : nullptr; }

   Value * find( const Key & key ) {
      Slot * const slot = index_.find( first_, key );
      return slot ? &slot->value : nullptr;
   }
   const Value * find( const Key & key ) const { return const_cast< Collection * >( this )->find( key ); }

   /// The value of the key and whether it was inserted by this call.
   std::pair< Value *, bool > emplace( const Key & key ) {
      if ( Slot * const slot = index_.find( first_, key ) )
         return { &slot->value, false };
      return { &insert( key ), true };
   }

   /// Removes the key; its value is given to the caller, so that it is destroyed after the collection is
   /// consistent.
   bool extract( const Key & key, Value & value ) {
      Slot * const slot = index_.find( first_, key );
      if ( !slot )
         return false;
      value = std::move( slot->value );
      remove( *slot );
      return true;
   }

   class Walk;
   struct End {};
   /// `for ( auto & [ key, value ] : collection )`
   Walk begin() const { return Walk( *this ); }
   End end() const { return {}; }

   /// One walk through the collection. It is told of removals, so it cannot be copied.
   class Walk {
    public:
      explicit Walk( const Collection & collection )
         : collection_( collection ), outer_( collection.walks_ ), slot_( collection.first_ ) {
         collection_.walks_ = this;
      }
      ~Walk() { collection_.walks_ = outer_; }
      Walk( const Walk & ) = delete;
      Walk & operator=( const Walk & ) = delete;

      bool operator!=( End ) const { return slot_ != nullptr; }
      Walk & operator++() {
         slot_ = gone_ ? next_ : slot_->next;
         gone_ = false;
         kept_ = nullptr;
         return *this;
      }
      std::pair< const Key &, const Value & > operator*() const { return { slot_->key, slot_->value }; }

    private:
      friend class Collection;
      const Collection & collection_;
      Walk * outer_;
      Slot * slot_;
      Slot * next_ = nullptr; ///< where to go on when the slot is gone
      bool gone_ = false;
      std::unique_ptr< Slot > kept_; ///< keeps the removed key readable
   };

 private:
   [[gnu::noinline]] Value & insert( const Key & key ) {
      auto made = std::make_unique< Slot >( key );
      Slot * const next = index_.add( first_, *made, size_ );
      Slot * const slot = made.release();
      slot->next = next;
      slot->previous = next ? next->previous : last_;
      ( slot->previous ? slot->previous->next : first_ ) = slot;
      ( next ? next->previous : last_ ) = slot;
      ++size_;
      return slot->value;
   }

   void remove( Slot & slot ) {
      index_.remove( slot );
      ( slot.previous ? slot.previous->next : first_ ) = slot.next;
      ( slot.next ? slot.next->previous : last_ ) = slot.previous;
      --size_;
      std::unique_ptr< Slot > gone( &slot );
      if ( walks_ ) [[unlikely]]
         tellWalks( gone );
   }

   /// The outermost walk that stands on the removed slot keeps it: it ends last.
   void tellWalks( std::unique_ptr< Slot > & gone ) {
      Walk * outermost = nullptr;
      for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
         if ( walk->gone_ && walk->next_ == gone.get() )
            walk->next_ = gone->next;
         else if ( !walk->gone_ && walk->slot_ == gone.get() ) {
            walk->gone_ = true;
            walk->next_ = gone->next;
            outermost = walk;
         }
      }
      if ( outermost )
         outermost->kept_ = std::move( gone );
   }

   typename Order::template Index< Slot, Key > index_;
   Slot * first_ = nullptr;
   Slot * last_ = nullptr;
   mutable Walk * walks_ = nullptr;
   U32 size_ = 0;
};

} // namespace Vel
