#include "Platform/Ledger/EntityForm.h"

#include <charconv>

namespace Ledger {

namespace {
const char * bytesOf( const Vel::Entity & entity ) { return reinterpret_cast< const char * >( &entity ); }

void append( Vel::String & text, std::string_view name, std::string_view size ) {
   text.append( text.empty() ? "" : "," ).append( name ).append( " " ).append( size );
}
} // namespace

void EntityForm::attributeIs( const Vel::AttributeInfo & info, Vel::Entity & sample ) {
   const std::size_t offset =
      static_cast< std::size_t >( static_cast< const char * >( info.raw( sample ) ) - bytesOf( sample ) );
   const std::size_t size = info.value->copiedSize;
   if ( !size ) {
      written_.push_back( { offset, info.value } );
      append( writtenText_, info.name, "*" );
      return;
   }
   if ( !copied_.empty() && copied_.back().offset + copied_.back().size == offset )
      copied_.back().size += size;
   else
      copied_.push_back( { offset, size } );
   copiedSize_ += size;
   append( copiedText_, info.name, std::to_string( size ) );
}

Vel::String EntityForm::text() const {
   return copiedText_ + ( copied_.empty() || written_.empty() ? "" : "," ) + writtenText_;
}

void EntityForm::write( Vel::String & out, const Vel::Entity & entity ) const {
   const char * const from = bytesOf( entity );
   std::size_t at = out.size();
   out.resize( at + copiedSize_ );
   for ( const Copied & copied : copied_ ) {
      std::memcpy( out.data() + at, from + copied.offset, copied.size );
      at += copied.size;
   }
   for ( const Written & written : written_ ) {
      at = out.size();
      Vel::U32 size = 0;
      Vel::ByteWriter writer( out );
      writer.bytes( &size, sizeof size );
      written.type->write( writer, from + written.offset );
      size = static_cast< Vel::U32 >( out.size() - at - sizeof size );
      std::memcpy( out.data() + at, &size, sizeof size );
   }
}

bool EntityForm::fields( std::string_view text, std::vector< Field > & fields ) {
   while ( !text.empty() ) {
      const std::string_view field = text.substr( 0, text.find( ',' ) );
      text.remove_prefix( std::min( field.size() + 1, text.size() ) );
      const std::size_t blank = field.find( ' ' );
      if ( blank == 0 || blank == std::string_view::npos )
         return false;
      const std::string_view size = field.substr( blank + 1 );
      std::size_t number = 0;
      if ( size != "*" ) {
         const char * const end = size.data() + size.size();
         const auto [parsed, error] = std::from_chars( size.data(), end, number );
         if ( error != std::errc() || parsed != end || number == 0 )
            return false;
      }
      fields.push_back( { Vel::String( field.substr( 0, blank ) ), number } );
   }
   return true;
}

} // namespace Ledger
