// Configuration files, with drop-ins: whatever they hold, they are accepted or each error has its place; and what is
// accepted says the same again when it is written out and read back.

#include "Config/Differences.h"
#include "Config/Files.h"
#include "Config/Load.h"
#include "Config/ToYaml.h"
#include "Fuzz/Input.h"
#include "Fuzz/Mutation.h"

#include <algorithm>
#include <map>

namespace {

/// Begins the next file: the main one first, then drop-ins.
constexpr std::string_view nextFile = "\n%%%\n";
const std::string mainFile = "etc/maintd.yaml", dropIns = "etc/maintd.d";

class GivenFiles final : public Config::Files {
 public:
   explicit GivenFiles( std::string_view input ) {
      for ( bool more = true; more; ) {
         const std::size_t end = input.find( nextFile );
         const std::string path =
            files_.empty() ? mainFile : dropIns + "/" + char( 'a' + ( files_.size() - 1 ) % 26 ) + ".yaml";
         files_.emplace( path, std::string( input.substr( 0, end ) ) );
         more = end != input.npos;
         if ( more )
            input.remove_prefix( end + nextFile.size() );
      }
   }
   Config::Parsed< std::string > read( const std::string & path ) override {
      const auto at = files_.find( path );
      if ( at == files_.end() )
         return { std::nullopt, "No such file or directory" };
      return { at->second, {} };
   }
   Config::Parsed< std::vector< std::string > > list( const std::string & directory ) override {
      std::vector< std::string > names;
      for ( const auto & [path, text] : files_ )
         if ( directory == dropIns && path.starts_with( dropIns ) )
            names.push_back( path.substr( dropIns.size() + 1 ) );
      return { names, {} };
   }
   /// Whether there is such a line, and such a column in it or just behind it.
   bool hasPlace( const Config::Error & error ) const {
      if ( error.line == 0 )
         return error.column == 0;
      const auto at = files_.find( error.file );
      if ( at == files_.end() || error.column == 0 )
         return false;
      std::string_view text = at->second;
      for ( unsigned line = 1; line < error.line; ++line ) {
         const std::size_t end = text.find_first_of( "\n\r" );
         if ( end == text.npos )
            return false;
         text.remove_prefix( end + ( text.substr( end ).starts_with( "\r\n" ) ? 2 : 1 ) );
      }
      return error.column <= std::min( text.find_first_of( "\n\r" ), text.size() ) + 1;
   }

 private:
   std::map< std::string, std::string > files_;
};

/// \param other  may give a part
void change( std::string & text, std::string_view other, std::size_t most, Fuzz::Dice & dice ) {
   if ( dice.oneIn( 8 ) )
      Fuzz::changeAnything( text, most );
   else if ( !other.empty() && dice.oneIn( 4 ) )
      Fuzz::takePart( text, other, dice );
   else
      Fuzz::changeText( text, Fuzz::yaml, dice );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   GivenFiles files( Fuzz::Input( data, size ).rest() );
   const Config::Result result = Config::load( mainFile, files );
   Fuzz::require( bool( result ) == result.errors.empty(), "a configuration, or errors" );
   for ( const Config::Error & error : result.errors ) {
      Fuzz::require( !error.message.empty(), "each error says what is wrong" );
      Fuzz::require( error.message.find( '\n' ) == std::string::npos, "in one line", error.message );
      Fuzz::require( files.hasPlace( error ), "and where", error.text() );
   }
   if ( !result )
      return 0;
   const std::string text = Config::toYaml( *result.configuration );
   const Config::Result again = Config::parse( text, "written" );
   Fuzz::require( bool( again ), "what is written out is accepted", text );
   Fuzz::require( *again.configuration == *result.configuration, "and the same", text );
   Fuzz::require(
      Config::differences( *result.configuration, *again.configuration ).empty(), "without differences",
      text );
   Fuzz::require(
      Config::describe( Config::Configuration(), *result.configuration ).size() < 100000,
      "and can be described" );
   return 0;
}

extern "C" std::size_t
LLVMFuzzerCustomMutator( std::uint8_t * data, std::size_t size, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed(
      data, size, data, most, [&]( std::string & text ) { change( text, "", most, dice ); } );
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(
   const std::uint8_t * data, std::size_t size, const std::uint8_t * other, std::size_t otherSize,
   std::uint8_t * out, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed( data, size, out, most, [&]( std::string & text ) {
      change( text, Fuzz::Input( other, otherSize ).rest(), most, dice );
   } );
}
