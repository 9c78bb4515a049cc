#pragma once

#include <compare>
#include <string>
#include <vector>

namespace Config {

/// A place in one of the files that are read together.
struct Place {
   unsigned file = 0; ///< index in Diagnostics
   unsigned line = 1;
   unsigned column = 1; ///< in characters

   friend auto operator<=>( const Place &, const Place & ) = default;
};

/// A value of a file, with all that is below it. Keys of one map are all different; there are no aliases.
struct Node {
   enum class Kind {
      none, ///< a key without a value, `~` or `null`
      scalar,
      list,
      map,
      refused ///< an error has been reported in its place
   };
   Kind kind = Kind::none;
   Place place;
   std::string text;             ///< of a scalar
   bool plain = false;           ///< a scalar without quotes
   std::vector< Node > children; ///< of a list or map, in the order written

   std::string key; ///< if it is in a map
   Place keyPlace;
};

} // namespace Config
