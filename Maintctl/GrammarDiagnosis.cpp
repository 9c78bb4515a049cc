#include "Maintctl/Grammar.h"

#include "Config/Load.h"
#include "Maintctl/Numbers.h"
#include "Platform/FastLog/FastLog.h"

#include <charconv>

namespace Maintctl {

namespace {

std::pair< std::string, int > levelOf( const std::string & text ) {
   const std::size_t equals = text.rfind( '=' );
   const std::string digits = equals == std::string::npos ? "" : text.substr( equals + 1 );
   int level = -1;
   const auto end = digits.data() + digits.size();
   const auto [stop, error] = std::from_chars( digits.data(), end, level );
   const bool number = error == std::errc() && stop == end && level >= -1 && level <= 9;
   if ( equals == std::string::npos || equals == 0 || ( !number && digits != "off" ) )
      throw CLI::ValidationError(
         "NAME=LEVEL", "\"" + text + "\" is no NAME=LEVEL with a level of 0 to 9, or off" );
   return { text.substr( 0, equals ), number ? level : -1 };
}

} // namespace

void Grammar::diagnosis() {
   verb( app_, "dump", "Show the plug-in's diagnostic text", [] { return Dump{}; } );

   App * fastLog =
      verb( app_, "fastlog", "Show the last events, also those of an agent that is gone", [this] {
         return ShowFastLog{ file_, last_, run_ };
      } );
   fastLog->add_option( "--file", file_, "The log; without it \"fastlog\" beside the control socket" )
      ->type_name( "PATH" );
   fastLog->add_option( "--last", last_, "Only the newest so many lines" )
      ->type_name( "COUNT" )
      ->check( id() );
   fastLog
      ->add_option(
         "--run", run_,
         "Of an earlier run of the agent: 1 is the one before; " + std::to_string( FastLog::keptRuns ) +
            " are kept" )
      ->type_name( "COUNT" )
      ->check( number( 1, FastLog::keptRuns ) );

   App * trace =
      verb( app_, "trace", "Show the trace levels, or set some", [this] { return Trace{ levels_ }; } );
   trace
      ->add_option_function< std::vector< std::string > >(
         "NAME=LEVEL",
         [this]( const std::vector< std::string > & texts ) {
            for ( const std::string & text : texts )
               levels_.push_back( levelOf( text ) );
         },
         "Levels to set: 0 to 9, -1 or off for none; \"*\" is all names" )
      ->type_name( "" );

   App * release = verb(
      app_, "release", "Raise a link that we hold down, whatever the stages say; needs --force", [this] {
         return Release{ name_, force_, note() };
      } );
   name( release, "INTF", "The interface" );
   release->add_flag( "--force", force_, "Really do it" );
   why( release, "Why; it is kept with the operation" );
   noted( release );
}

void Grammar::configuration() {
   App * validate = verb( app_, "validate", "Check a configuration file, without an agent", [this] {
      return Validate{ name_.empty() ? Config::defaultFile : name_ };
   } );
   const std::string help =
      std::string( "The configuration file; its drop-ins are in maintd.d beside it; " ) +
      Config::defaultFile + " unless it is given";
   name( validate, "FILE", help.c_str(), false );
   App * reload = verb(
      app_, "reload", "Apply the agent's configuration file again", [this] { return Reload{ note() }; } );
   why( reload, "Why; it is kept with the operation" );
   noted( reload );
}

} // namespace Maintctl
