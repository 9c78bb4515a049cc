#pragma once

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

/// Purpose: small collections that are walked in the order in which their keys came, as the platform walks its own.
namespace Reference {

/// Keys, each once.
template < class Key >
class Sequence {
 public:
   bool has( Key key ) const { return std::find( keys_.begin(), keys_.end(), key ) != keys_.end(); }
   /// False if it is there already; it keeps its place.
   bool add( Key key ) {
      if ( has( key ) )
         return false;
      keys_.push_back( key );
      return true;
   }
   /// False if it is not there.
   bool del( Key key ) {
      const auto at = std::find( keys_.begin(), keys_.end(), key );
      if ( at == keys_.end() )
         return false;
      keys_.erase( at );
      return true;
   }
   bool empty() const { return keys_.empty(); }
   Key first() const { return keys_.front(); }
   auto begin() const { return keys_.begin(); }
   auto end() const { return keys_.end(); }

 private:
   std::vector< Key > keys_;
};

/// Things by their keys. A thing stays in its place in memory until it is deleted.
template < class Key, class Thing >
class Table {
 public:
   /// Null if there is none.
   Thing * find( Key key ) {
      const auto at = things_.find( key );
      return at == things_.end() ? nullptr : &at->second;
   }
   /// The one that is there, or a new one.
   Thing & make( Key key ) {
      keys_.add( key );
      return things_[key];
   }
   bool del( Key key ) {
      things_.erase( key );
      return keys_.del( key );
   }
   const Sequence< Key > & keys() const { return keys_; }

 private:
   std::map< Key, Thing > things_;
   Sequence< Key > keys_;
};

/// The value of a key, null if there is none.
template < class Map >
auto * find( Map & map, const typename Map::key_type & key ) {
   const auto at = map.find( key );
   return at == map.end() ? nullptr : &at->second;
}

} // namespace Reference
