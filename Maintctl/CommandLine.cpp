#include "Maintctl/CommandLine.h"

#include "Maintctl/Grammar.h"

namespace Maintctl {

namespace {

/// Short options may stand together, as in -jh.
bool isJson( const std::string & argument ) {
   const bool isShort = argument.size() > 1 && argument[0] == '-' && argument[1] != '-';
   return argument == "--json" || ( isShort && argument.find( 'j' ) != std::string::npos );
}

/// Also of a command line that cannot be understood otherwise.
bool wantsJson( const std::vector< std::string > & arguments ) {
   for ( const std::string & argument : arguments ) {
      if ( argument == "--" )
         break;
      if ( isJson( argument ) )
         return true;
   }
   return false;
}

} // namespace

Parsed parse( const std::vector< std::string > & arguments, const std::string & version ) {
   Grammar grammar( version );
   try {
      return grammar.parse( arguments );
   } catch ( const CLI::CallForVersion & call ) {
      return Information{ "version", grammar.information( call ), version, wantsJson( arguments ) };
   } catch ( const CLI::Success & call ) {
      const std::string text = grammar.information( call );
      return Information{ "help", text, text, wantsJson( arguments ) };
   } catch ( const CLI::ParseError & error ) {
      return UsageError{
         { ExitStatus::usage, FailureCode::usage, grammar.complaint( arguments, error ), "", {} },
         wantsJson( arguments ) };
   }
}

} // namespace Maintctl
