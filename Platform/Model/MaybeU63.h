#pragma once

#include "Platform/Vel/Text.h"

/// Purpose: a 63-bit count that may be absent. One 64-bit word; the top bit set means that there is no value.
/// Shared by the counter reader, which writes it, and by whoever samples counters.
namespace Cog {

class MaybeU63 {
 public:
   /// The count 0, which is a value.
   constexpr MaybeU63() = default;
   /// A count of 63 bits; the top bit is dropped, so that a 64-bit source wraps at 2^63.
   constexpr explicit MaybeU63( Vel::U64 count ) : word_( count & ~noValue ) {}
   static constexpr MaybeU63 none() {
      MaybeU63 result;
      result.word_ = noValue;
      return result;
   }
   /// Any word whose top bit is set gives none().
   static constexpr MaybeU63 fromWord( Vel::U64 word ) { return word & noValue ? none() : MaybeU63( word ); }

   constexpr bool hasValue() const { return !( word_ & noValue ); }
   /// 0 if there is none.
   constexpr Vel::U64 value() const { return word_ & ~noValue; }
   constexpr Vel::U64 word() const { return word_; }

   /// What must be added to `b`, wrapping at 2^63, to get `a`; none if one of them is none.
   friend constexpr MaybeU63 operator-( MaybeU63 a, MaybeU63 b ) {
      return a.hasValue() && b.hasValue() ? MaybeU63( a.word_ - b.word_ ) : none();
   }
   friend constexpr bool operator==( MaybeU63, MaybeU63 ) = default;

 private:
   static constexpr Vel::U64 noValue = Vel::U64( 1 ) << 63;
   Vel::U64 word_ = 0;
};

/// Decimal, or "none".
inline Vel::String stringValue( MaybeU63 count ) {
   return count.hasValue() ? Vel::text( count.value() ) : Vel::String( "none" );
}

} // namespace Cog
