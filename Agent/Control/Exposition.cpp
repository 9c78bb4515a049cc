#include "Agent/Control/Exposition.h"

#include "Api/Utf8.h"

#include <charconv>
#include <cmath>

namespace Agent {

void Exposition::metric( const char * name, Type type, const char * help ) {
   name_ = name;
   text_.append( "# HELP " ).append( name ).append( " " ).append( help );
   text_.append( "\n# TYPE " ).append( name ).append( type == Type::counter ? " counter\n" : " gauge\n" );
}

void Exposition::sample( double value, Labels labels ) {
   text_ += name_;
   char separator = '{';
   for ( const auto & [label, of] : labels ) {
      text_ += separator;
      text_.append( label ).append( "=\"" );
      this->value( of );
      text_ += '"';
      separator = ',';
   }
   text_.append( separator == ',' ? "} " : " " );
   if ( std::isnan( value ) )
      text_ += "NaN";
   else if ( std::isinf( value ) )
      text_ += value > 0 ? "+Inf" : "-Inf";
   else {
      char digits[32];
      const auto end = std::to_chars( digits, digits + sizeof digits, value ).ptr;
      text_.append( digits, end );
   }
   text_ += '\n';
}

/// A byte that is no character would make the whole answer unreadable; it is shown as `\xHH`.
void Exposition::value( std::string_view text ) {
   static constexpr char hex[] = "0123456789abcdef";
   while ( !text.empty() ) {
      const std::size_t size = Api::characterSize( text );
      const auto byte = static_cast< unsigned char >( text[0] );
      if ( size == 0 )
         text_.append( { '\\', '\\', 'x', hex[byte >> 4], hex[byte & 15] } );
      else if ( byte == '\n' )
         text_ += "\\n";
      else {
         if ( byte == '\\' || byte == '"' )
            text_ += '\\';
         text_ += text.substr( 0, size );
      }
      text.remove_prefix( size ? size : 1 );
   }
}

} // namespace Agent
