#pragma once

#include "Platform/Ledger/StoreEngine.h"
#include "Platform/Vel/Codec.h"

#include <unordered_map>
#include <vector>

/// Purpose: what the records of the state store look like. Numbers in keys are big-endian, so that records
/// lie in the order of entities; everything else is in the byte form of Vel::Codec.
///
///   "H"                     header: schema U32, transaction U64
///   "I"                     of the state store: its id, bytes that were chosen at random for its first commit. One that
///                           an earlier version has begun gets one with its next commit
///   "N" number U16          a text that the records below give by number: a name of an attribute or type, a
///                           form
///   "D" name                a document: bytes of the agent
///   "P" entity U64          its place: parent U64 (0: it stands at a path), attribute of the parent U16,
///       type
///                           U16, key or path (with its length), then constructor parameters
///   "V" entity U64          its values: attributes and counters
///   "K" entity U64, attribute U16, key
///                           a key of a set or map: the value, nothing for a set
///   "L" entity U64, attribute U16, hash
///                           the same for a key that is too long: the key (with its length), then the value
///
/// Parameters and values are the number of their form (see EntityForm), then what the form says. The form
/// names each of them, so that records stay readable after attributes have been added or removed; `schema`
/// rises when an attribute changes its meaning or these records change.
namespace Ledger {

constexpr Vel::U32 storeSchema = 1;

/// The bytes of a store's id.
constexpr std::size_t storeIdSize = 16;

/// A key of a record, put together in place.
class RecordKey {
 public:
   explicit RecordKey( char tag ) { bytes_[size_++] = tag; }
   RecordKey & number16( Vel::U16 number ) { return number_( number, 2 ); }
   RecordKey & number64( Vel::U64 number ) { return number_( number, 8 ); }
   /// The caller has seen to it that they fit, see room().
   RecordKey & bytes( std::string_view bytes );
   std::size_t room() const { return sizeof bytes_ - size_; }
   operator std::string_view() const { return { bytes_, size_ }; }

   static RecordKey header() { return RecordKey( 'H' ); }
   static RecordKey storeId() { return RecordKey( 'I' ); }
   static RecordKey text( Vel::U16 number ) { return RecordKey( 'N' ).number16( number ); }
   static RecordKey document( std::string_view name ) { return RecordKey( 'D' ).bytes( name ); }
   static RecordKey place( Vel::U64 id ) { return RecordKey( 'P' ).number64( id ); }
   static RecordKey values( Vel::U64 id ) { return RecordKey( 'V' ).number64( id ); }
   static RecordKey keys( Vel::U64 id ) { return RecordKey( 'K' ).number64( id ); }
   static RecordKey longKeys( Vel::U64 id ) { return RecordKey( 'L' ).number64( id ); }
   /// The record of a key of a set or map. `tooLong` tells that the key is not in it.
   static RecordKey ofKey( Vel::U64 id, Vel::U16 attribute, std::string_view key, bool & tooLong );

 private:
   RecordKey & number_( Vel::U64 number, unsigned size );

   char bytes_[StoreEngine::maxKey];
   std::size_t size_ = 0;
};

/// Takes the big-endian numbers of a key off its front; failed() as in Vel::ByteReader.
Vel::U64 takeNumber( Vel::ByteReader & reader, unsigned size );

/// Appends and takes values in their byte form.
template < class T >
void writeValue( Vel::String & out, const T & value ) {
   Vel::ByteWriter writer( out );
   Vel::Codec< T >::write( writer, value );
}
template < class T >
T readValue( Vel::ByteReader & reader ) {
   T value{};
   Vel::Codec< T >::read( reader, value );
   return value;
}
/// Bytes with their length.
void writeSized( Vel::String & out, std::string_view bytes );
std::string_view readSized( Vel::ByteReader & reader );

/// The texts of one store by number. Numbers begin at 1 and are never used again.
class StoreTexts {
 public:
   /// The number of a text, a new one if it has none.
   Vel::U16 number( const Vel::String & text );
   /// Null if there is none of that number.
   const Vel::String * text( Vel::U16 number ) const;
   /// A text that the store holds; they come in the order of numbers. False: this one does not.
   bool restore( Vel::U16 number, std::string_view text );

   /// Writes the texts that the store does not hold yet.
   Status write( StoreEngine & engine ) const;
   /// The store holds them all now.
   void writtenIs() { written_ = texts_.size(); }

 private:
   std::vector< Vel::String > texts_;
   std::unordered_map< Vel::String, Vel::U16 > numbers_;
   std::size_t written_ = 0;
};

} // namespace Ledger
