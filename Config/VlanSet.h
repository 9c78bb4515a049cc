#pragma once

#include "Config/Parsed.h"

#include <compare>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// VLAN ids are 1 to 4094.
using VlanId = std::uint16_t;
inline constexpr VlanId minVlanId = 1;
inline constexpr VlanId maxVlanId = 4094;

/// Ids first to last, both included, first <= last.
struct VlanRange {
   VlanId first = minVlanId;
   VlanId last = minVlanId;

   /// Reads `10` or `20-29`: decimal, no blanks, no leading zeros.
   static Parsed< VlanRange > parse( std::string_view text );

   bool contains( VlanId vlan ) const { return first <= vlan && vlan <= last; }
   bool overlaps( const VlanRange & other ) const { return first <= other.last && other.first <= last; }
   std::string text() const;
   friend auto operator<=>( const VlanRange &, const VlanRange & ) = default;
};

/// A set of VLAN ids.
/// Invariant: ranges() is sorted, and between two ranges at least one id is missing. So equal sets are equal ranges,
/// however they were written.
class VlanSet {
 public:
   VlanSet() = default;
   VlanSet( std::initializer_list< VlanRange > ranges );

   void add( VlanRange range ); ///< what is already there stays there
   bool contains( VlanId vlan ) const;
   bool empty() const { return ranges_.empty(); }
   const std::vector< VlanRange > & ranges() const { return ranges_; }
   std::vector< VlanId > ids() const; ///< ascending
   VlanSet without( const VlanSet & other ) const;
   std::string text() const; ///< `10,20-29`; empty for no id

   friend bool operator==( const VlanSet &, const VlanSet & ) = default;

 private:
   std::vector< VlanRange > ranges_;
};

} // namespace Config
