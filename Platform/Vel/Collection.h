#pragma once

#include "Platform/Vel/String.h"

#include <map>
#include <unordered_map>
#include <utility>

/// Purpose: the containers behind keyed collections.
///
/// Invariants:
/// 1. Iteration order is fixed: order of insertion (hash) or of keys (ordered); one seed gives one story.
/// 2. The first element, size, look-up, insertion and removal cost O(1) (hash) or O(log n) (ordered).
/// 3. While the collection is walked, any key may be removed, also the current one, and any key may be added.
/// A
///    removed key is not visited; an added one is visited if the walk has not passed its place. The key that
///    the walk stands on stays readable until the walk goes on, its value does not.
/// 4. Walks nest like scopes: a walk that began later ends earlier.
namespace Vel {

/// Order of iteration of a keyed collection.
struct Hashed {
   template < class K, class V >
   using Map = std::unordered_map< K, V >;
};
struct Ordered {
   template < class K, class V >
   using Map = std::map< K, V >;
};

/// Value of a set: there is none.
struct NoValue {
   friend bool operator==( NoValue, NoValue ) { return true; }
};

template < class Key, class Value, class Order = Hashed >
class Collection {
   struct Slot {
      Value value{};
      Slot * next = nullptr;
      Slot * previous = nullptr;
      const Key * key = nullptr;
   };
   using Map = typename Order::template Map< Key, Slot >;

 public:
   Collection() = default;
   Collection( const Collection & ) = delete;
   Collection & operator=( const Collection & ) = delete;

   U32 size() const { return static_cast< U32 >( map_.size() ); }
   bool empty() const { return !first_; }
   const Key * firstKey() const { return first_ ? first_->key : nullptr; }

   Value * find( const Key & key ) {
      const auto it = map_.find( key );
      return it == map_.end() ? nullptr : &it->second.value;
   }
   const Value * find( const Key & key ) const { return const_cast< Collection * >( this )->find( key ); }

   /// The value of the key and whether it was inserted by this call.
   std::pair< Value *, bool > emplace( const Key & key ) {
      const auto [it, inserted] = map_.try_emplace( key );
      if ( inserted )
         link( it );
      return { &it->second.value, inserted };
   }

   /// Removes the key; its value is given to the caller, so that it is destroyed after the collection is
   /// consistent.
   bool extract( const Key & key, Value & value ) {
      const auto it = map_.find( key );
      if ( it == map_.end() )
         return false;
      value = std::move( it->second.value );
      unlink( it );
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
         kept_ = {};
         return *this;
      }
      std::pair< const Key &, const Value & > operator*() const { return { *slot_->key, slot_->value }; }

    private:
      friend class Collection;
      const Collection & collection_;
      Walk * outer_;
      Slot * slot_;
      Slot * next_ = nullptr; ///< where to go on when the slot is gone
      bool gone_ = false;
      typename Map::node_type kept_; ///< keeps the removed key readable
   };

 private:
   void link( typename Map::iterator it ) {
      Slot * slot = &it->second;
      slot->key = &it->first;
      Slot * next = nullptr;
      if constexpr ( std::is_same_v< Order, Ordered > ) {
         const auto behind = std::next( it );
         next = behind == map_.end() ? nullptr : &behind->second;
      }
      slot->next = next;
      slot->previous = next ? next->previous : last_;
      ( slot->previous ? slot->previous->next : first_ ) = slot;
      ( next ? next->previous : last_ ) = slot;
   }

   void unlink( typename Map::iterator it ) {
      Slot * slot = &it->second;
      ( slot->previous ? slot->previous->next : first_ ) = slot->next;
      ( slot->next ? slot->next->previous : last_ ) = slot->previous;
      Walk * outermost = nullptr;
      for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
         if ( walk->gone_ && walk->next_ == slot )
            walk->next_ = slot->next;
         else if ( !walk->gone_ && walk->slot_ == slot ) {
            walk->gone_ = true;
            walk->next_ = slot->next;
            outermost = walk;
         }
      }
      if ( outermost )
         outermost->kept_ = map_.extract( it );
      else
         map_.erase( it );
   }

   Map map_;
   Slot * first_ = nullptr;
   Slot * last_ = nullptr;
   mutable Walk * walks_ = nullptr;
};

} // namespace Vel
