#pragma once

#include "Platform/Vel/Declare.h"

#include <iterator>
#include <map>

/// Purpose: what has been asked for and was done, each under a number, so that who asks can find out what became of it
/// and whoever asks twice gets it once. Kept across restarts: written in the turn of the change that it is about, so
/// that both are committed together. Written by Operations only.
///
/// Bounds: `OperationDir::mostKept` operations that have ended, and as many request keys; the oldest make room. What
/// runs is always kept; there is no more than one for each unit.
namespace Agent {

/// Ordinals are part of the stored form.
enum class OperationKind : Vel::U32 {
   enter = 0,
   exit = 1,
   release = 2, ///< of one link
   reload = 3,  ///< of the configuration
};
/// "enter", "exit", "release", "reload".
inline Vel::String stringValue( OperationKind kind ) {
   const char * const texts[] = { "enter", "exit", "release", "reload" };
   const auto ordinal = static_cast< Vel::U32 >( kind );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "OperationKind(", ordinal, ")" );
}
/// Of a unit, which takes its time; others are done when they are asked for.
inline bool isOfUnit( OperationKind kind ) {
   return kind == OperationKind::enter || kind == OperationKind::exit;
}

/// Ordinals are part of the stored form.
enum class OperationState : Vel::U32 {
   running = 0,
   done = 1,      ///< it is as was asked for; a unit has come to where it should
   failed = 2,    ///< a stage has taken the unit back, or the unit is gone
   cancelled = 3, ///< another operation has taken its place before it was done
};
/// "running", "done", "failed", "cancelled".
inline Vel::String stringValue( OperationState state ) {
   const char * const texts[] = { "running", "done", "failed", "cancelled" };
   const auto ordinal = static_cast< Vel::U32 >( state );
   return ordinal < std::size( texts ) ? texts[ordinal] : Vel::text( "OperationState(", ordinal, ")" );
}

/// What whoever asks has noted down with it, in a text: "KEY=VALUE" in a line each. Keys are without "=", neither has
/// control characters.
using Pairs = std::map< Vel::String, Vel::String >;
inline Vel::String pairLines( const Pairs & pairs ) {
   Vel::String lines;
   for ( const auto & [key, value] : pairs )
      lines += key + "=" + value + "\n";
   return lines;
}
inline Pairs pairsOf( const Vel::String & lines ) {
   Pairs pairs;
   for ( std::size_t begin = 0; begin < lines.size(); ) {
      const std::size_t end = std::min( lines.find( '\n', begin ), lines.size() );
      const std::size_t equals = lines.find( '=', begin );
      if ( equals < end )
         pairs[lines.substr( begin, equals - begin )] = lines.substr( equals + 1, end - equals - 1 );
      begin = end + 1;
   }
   return pairs;
}

/// What a request key has been used for.
struct KeyUse {
   Vel::U32 operation = 0;   ///< that was answered; 0: nothing had to be done, and nobody knows since when
   Vel::U64 fingerprint = 0; ///< of the request
   Vel::U64 order = 0;       ///< rises from use to use

   friend bool operator==( const KeyUse &, const KeyUse & ) = default;
};
inline Vel::String stringValue( const KeyUse & use ) { return Vel::text( "operation ", use.operation ); }

} // namespace Agent

template <>
struct Vel::Codec< Agent::KeyUse > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Agent::KeyUse & v ) {
      Codec< U32 >::write( w, v.operation );
      Codec< U64 >::write( w, v.fingerprint );
      Codec< U64 >::write( w, v.order );
   }
   static void read( ByteReader & r, Agent::KeyUse & v ) {
      Codec< U32 >::read( r, v.operation );
      Codec< U64 >::read( r, v.fingerprint );
      Codec< U64 >::read( r, v.order );
   }
};

namespace Agent {

class Operation final : public Vel::Entity {
   VEL_ENTITY( Operation );
   explicit Operation( Vel::U32 id, const Vel::String & unitName = {} ) : id_( id ), unitName_( unitName ) {}
   static constexpr std::size_t longestReason = 1024; ///< bytes; of a longer one the beginning is kept

   VEL_PARAM( Vel::U32, id );
   VEL_PARAM( Vel::String, unitName ); ///< of a release the name of the link; of a reload empty
   VEL_ATTR( OperationKind, kind, onKind );
   VEL_ATTR( OperationState, state, onState );
   VEL_ATTR( Vel::String, by, onBy );
   VEL_ATTR( Vel::String, reason, onReason );
   VEL_ATTR( Vel::String, with, onWith ); ///< pairs
   VEL_ATTR( Vel::String, requestKey, onRequestKey );
   /// Wall time, seconds since 1970: the clock of another boot may be another one. 0: it has not ended.
   VEL_ATTR( double, begun, onBegun );
   VEL_ATTR( double, ended, onEnded );
   VEL_ATTR( Vel::U32, endedBy, onEndedBy ); ///< the operation that has taken its place; 0: none
   VEL_ATTR( Vel::String, text, onText );    ///< how it has ended, a sentence
};

class OperationDir final : public Vel::Entity {
   VEL_ENTITY( OperationDir );
   static constexpr Vel::U32 mostKept = 10000;

   VEL_ATTR(
      Vel::U32, lastId, onLastId ); ///< no operation bears a larger one, and none will bear this one again
   VEL_CHILDREN( Vel::U32, Operation, operation, onOperation, Ordered );
   VEL_MAP( Vel::String, KeyUse, keyUse, onKeyUse );
};

} // namespace Agent
