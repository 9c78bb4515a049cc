#pragma once

#include "Platform/Vel/String.h"

#include <bit>
#include <functional>
#include <memory>
#include <set>

/// Purpose: how a keyed collection finds the slot of a key. Owner: the collection, which also owns the slots and
/// keeps them in a list from `first` in the order of its walks. A slot stays at its address while it is there.
///
/// An index offers: `find( first, key )`, the slot or null; `add( first, slot, count )`, the slot before which the new
/// one is walked, null for the end (the slot is not in the list yet; `count` slots are); `remove( slot )`; `clear()`.
namespace Vel {

template < class Key, class Value >
struct Slot {
   explicit Slot( const Key & k ) : key( k ) {}
   const Key key;
   Value value{};
   Slot * next = nullptr;
   Slot * previous = nullptr;
   Slot * sameBucket = nullptr; ///< the index's own
};

/// Chains of slots, at most as many slots as chains; one access to the table and one to the slot for most look-ups.
/// A few slots need no table: they are searched one by one. New slots are the last of the walk.
template < class Slot, class Key >
class HashIndex {
 public:
   HashIndex() = default;
   HashIndex( const HashIndex & ) = delete;
   HashIndex & operator=( const HashIndex & ) = delete;
   ~HashIndex() { clear(); }

   Slot * find( Slot * first, const Key & key ) const {
      if ( !buckets_ ) [[unlikely]] {
         while ( first && !( first->key == key ) )
            first = first->next;
         return first;
      }
      Slot * slot = buckets_[bucketOf( key )];
      while ( slot && !( slot->key == key ) )
         slot = slot->sameBucket;
      return slot;
   }

   Slot * add( Slot * first, Slot & slot, U32 count ) {
      if ( count >= ( buckets_ ? U64( 1 ) << ( 64 - shift_ ) : searched ) )
         grow( first, count );
      if ( buckets_ )
         chain( slot );
      return nullptr;
   }

   void remove( Slot & slot ) {
      if ( !buckets_ )
         return;
      Slot ** place = &buckets_[bucketOf( slot.key )];
      while ( *place != &slot )
         place = &( *place )->sameBucket;
      *place = slot.sameBucket;
   }

   void clear() {
      delete[] buckets_;
      buckets_ = nullptr;
   }

 private:
   static constexpr U32 searched = 4;

   /// The upper bits of the product depend on all bits of the hash, which may be no more than the key itself.
   std::size_t bucketOf( const Key & key ) const {
      return std::hash< Key >()( key ) * 0x9e3779b97f4a7c15 >> shift_;
   }
   void chain( Slot & slot ) {
      Slot *& bucket = buckets_[bucketOf( slot.key )];
      slot.sameBucket = bucket;
      bucket = &slot;
   }
   void grow( Slot * first, U32 count ) {
      const unsigned bits = static_cast< unsigned >( std::bit_width( count ) );
      Slot ** const larger = new Slot *[std::size_t( 1 ) << bits]();
      clear();
      buckets_ = larger;
      shift_ = 64 - bits;
      for ( ; first; first = first->next )
         chain( *first );
   }

   Slot ** buckets_ = nullptr;
   unsigned shift_ = 0; ///< the table has 2 to the power of 64 - shift buckets
};

/// A tree in the order of keys, which is the order of the walk.
template < class Slot, class Key >
class TreeIndex {
 public:
   Slot * find( Slot *, const Key & key ) const {
      const auto it = slots_.find( key );
      return it == slots_.end() ? nullptr : *it;
   }
   Slot * add( Slot *, Slot & slot, U32 ) {
      const auto behind = std::next( slots_.insert( &slot ).first );
      return behind == slots_.end() ? nullptr : *behind;
   }
   void remove( Slot & slot ) { slots_.erase( slots_.find( slot.key ) ); }
   void clear() { slots_.clear(); }

 private:
   struct Less {
      using is_transparent = void;
      bool operator()( const Slot * a, const Slot * b ) const { return a->key < b->key; }
      bool operator()( const Slot * a, const Key & b ) const { return a->key < b; }
      bool operator()( const Key & a, const Slot * b ) const { return a < b->key; }
   };
   std::set< Slot *, Less > slots_;
};

/// Order of iteration of a keyed collection.
struct Hashed {
   template < class Slot, class Key >
   using Index = HashIndex< Slot, Key >;
};
struct Ordered {
   template < class Slot, class Key >
   using Index = TreeIndex< Slot, Key >;
};

} // namespace Vel
