#include "Platform/Ledger/Records.h"

namespace Ledger {

namespace {
/// FNV-1a, from the start value.
Vel::U64 hashOf( std::string_view bytes, Vel::U64 hash ) {
   for ( const char byte : bytes )
      hash = ( hash ^ static_cast< unsigned char >( byte ) ) * 0x100000001b3;
   return hash;
}
} // namespace

RecordKey & RecordKey::bytes( std::string_view bytes ) {
   VEL_ASSERT( bytes.size() <= room(), "bytes.size() <= room()" );
   std::memcpy( bytes_ + size_, bytes.data(), bytes.size() );
   size_ += bytes.size();
   return *this;
}

RecordKey & RecordKey::number_( Vel::U64 number, unsigned size ) {
   for ( unsigned shift = size * 8; shift; shift -= 8 )
      bytes_[size_++] = static_cast< char >( number >> ( shift - 8 ) );
   return *this;
}

RecordKey RecordKey::ofKey( Vel::U64 id, Vel::U16 attribute, std::string_view key, bool & tooLong ) {
   RecordKey result = keys( id ).number16( attribute );
   tooLong = key.size() > result.room();
   if ( !tooLong )
      return result.bytes( key );
   return longKeys( id )
      .number16( attribute )
      .number64( hashOf( key, 0xcbf29ce484222325 ) )
      .number64( hashOf( key, 0x9ae16a3b2f90404f ) );
}

Vel::U64 takeNumber( Vel::ByteReader & reader, unsigned size ) {
   Vel::U64 number = 0;
   for ( const char byte : reader.view( size ) )
      number = number << 8 | static_cast< unsigned char >( byte );
   return number;
}

void writeSized( Vel::String & out, std::string_view bytes ) {
   writeValue( out, static_cast< Vel::U32 >( bytes.size() ) );
   out.append( bytes );
}

std::string_view readSized( Vel::ByteReader & reader ) {
   return reader.view( readValue< Vel::U32 >( reader ) );
}

Vel::U16 StoreTexts::number( const Vel::String & text ) {
   const auto it = numbers_.find( text );
   if ( it != numbers_.end() )
      return it->second;
   VEL_ASSERT( texts_.size() < 0xffff, "texts() < 65535" );
   texts_.push_back( text );
   return numbers_[text] = static_cast< Vel::U16 >( texts_.size() );
}

const Vel::String * StoreTexts::text( Vel::U16 number ) const {
   return number >= 1 && number <= texts_.size() ? &texts_[number - 1u] : nullptr;
}

bool StoreTexts::restore( Vel::U16 number, std::string_view text ) {
   if ( number != texts_.size() + 1 || !numbers_.emplace( text, number ).second )
      return false;
   texts_.emplace_back( text );
   written_ = texts_.size();
   return true;
}

Status StoreTexts::write( StoreEngine & engine ) const {
   for ( std::size_t i = written_; i < texts_.size(); ++i )
      if ( Status status = engine.put( RecordKey::text( static_cast< Vel::U16 >( i + 1 ) ), texts_[i] );
           !status.ok() )
         return status;
   return {};
}

} // namespace Ledger
