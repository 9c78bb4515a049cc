#include "Maintctl/Grammar.h"

#include "Config/Suggestion.h"

#include <algorithm>
#include <sstream>

namespace Maintctl {

namespace {

constexpr char footer[] = R"(
Exit status:
  0  done                          4  timed out, or the condition was not met
  1  refused, or failed            5  needs --force
  2  wrong usage                 130  interrupted; the operation itself goes on
  3  the agent is not reachable

Times are written as 90s, 5m or 1h30m, rates as 100kbps, 1.5Mbps or 10Gbps.
"maintctl VERB --help" says more about one command.)";

std::vector< std::string > verbsOf( const CLI::App & app ) {
   std::vector< std::string > result;
   for ( const CLI::App * verb : app.get_subcommands( []( const CLI::App * ) { return true; } ) )
      result.push_back( verb->get_name() );
   return result;
}

/// `show ` for the verbs of show; empty for those of the program.
std::string pathOf( const CLI::App & app ) { return app.get_parent() ? app.get_name() + " " : ""; }

/// The word in the place of a verb of this level.
std::optional< std::string > unknownWord(
   const std::vector< std::string > & arguments, const CLI::App & level,
   const std::vector< std::string > & verbs ) {
   bool reached = level.get_parent() == nullptr;
   for ( std::size_t i = 0; i < arguments.size(); ++i ) {
      const std::string & word = arguments[i];
      if ( word == "--socket" || word == "--interval" )
         ++i;
      else if ( !reached )
         reached = word == level.get_name();
      else if ( !word.starts_with( '-' ) && std::find( verbs.begin(), verbs.end(), word ) == verbs.end() )
         return word;
   }
   return std::nullopt;
}

/// The long ones, those of the whole program too.
std::vector< std::string > optionsOf( const CLI::App & level ) {
   std::vector< std::string > result;
   for ( const CLI::App * app = &level; app; app = app->get_parent() )
      for ( const CLI::Option * option : app->get_options() )
         for ( const std::string & name : option->get_lnames() )
            result.push_back( "--" + name );
   return result;
}

/// The first of the arguments that looks like an option and is none.
std::optional< std::string >
unknownOption( const std::vector< std::string > & arguments, const CLI::App & level ) {
   const auto options = optionsOf( level );
   for ( const std::string & argument : arguments ) {
      const std::string name = argument.substr( 0, argument.find( '=' ) );
      if ( name == "--" )
         break;
      if ( name.starts_with( "--" ) && std::find( options.begin(), options.end(), name ) == options.end() )
         return name;
   }
   return std::nullopt;
}

} // namespace

CLI::Validator Grammar::notEmpty() {
   return CLI::Validator( []( std::string & text ) { return text.empty() ? "is empty" : ""; }, "" );
}

Grammar::Grammar( const std::string & version )
   : app_( "Puts maintenance units of a switch in and out of maintenance.", "maintctl" ) {
   app_.set_version_flag( "--version", "maintctl " + version, "Show the version and end" );
   app_.set_help_flag( "-h,--help", "Show this help and end" );
   app_.add_flag( "-j,--json", invocation_.json, "All output as JSON, errors too" );
   app_.add_option( "--socket", invocation_.socket, "Control socket of the agent" )
      ->type_name( "PATH" )
      ->capture_default_str();
   app_.add_flag( "--no-progress", noProgress_, "Draw no progress; say what changes, line by line" );
   app_.footer( footer );
   app_.require_subcommand( 1 );
   app_.get_formatter()->column_width( 30 ); // the verbs take it over
   app_.get_formatter()->label( "SUBCOMMAND", "VERB" );
   operations();
   shows();
   past();
   diagnosis();
   configuration();
   simulation();
}

Invocation Grammar::parse( std::vector< std::string > arguments ) {
   std::reverse( arguments.begin(), arguments.end() );
   app_.parse( std::move( arguments ) );
   invocation_.progress = !noProgress_;
   invocation_.command = command_();
   return std::move( invocation_ );
}

std::string Grammar::information( const CLI::ParseError & error ) const {
   std::ostringstream out, ignored;
   app_.exit( error, out, ignored );
   return out.str();
}

std::string
Grammar::complaint( const std::vector< std::string > & arguments, const CLI::ParseError & error ) const {
   // A value that is refused says by itself what is wrong, also if a command is missing behind it.
   if ( dynamic_cast< const CLI::ValidationError * >( &error ) )
      return error.what();
   const CLI::App * level = &app_;
   for ( const CLI::App * next = level; next; ) {
      level = next;
      const auto chosen = level->get_subcommands();
      next = chosen.empty() ? nullptr : chosen.front();
   }
   if ( const auto verbs = verbsOf( *level ); !verbs.empty() ) {
      const std::string path = pathOf( *level );
      if ( const auto word = unknownWord( arguments, *level, verbs ) ) {
         // What is a command by itself is easily looked for among those that show something.
         const auto all = verbsOf( app_ );
         const bool elsewhere = level != &app_ && std::find( all.begin(), all.end(), *word ) != all.end();
         return "unknown command \"" + path + *word + "\"" +
                ( elsewhere ? "; did you mean \"maintctl " + *word + "\"?"
                            : Config::didYouMean( *word, verbs ) );
      }
      return "a command is missing" +
             ( path.empty() ? "" : " after \"" + path.substr( 0, path.size() - 1 ) + "\"" ) +
             "; \"maintctl " + path + "--help\" lists them";
   }
   if ( dynamic_cast< const CLI::ExtrasError * >( &error ) )
      if ( const auto option = unknownOption( arguments, *level ) )
         return "unknown option \"" + *option + "\"" + Config::didYouMean( *option, optionsOf( *level ) );
   return error.what();
}

CLI::App * Grammar::verb(
   App & of, const std::string & name, const std::string & does, std::function< Command() > make ) {
   App * result = group( of, name, does );
   result->callback( [this, make = std::move( make )] { command_ = make; } );
   return result;
}

CLI::App * Grammar::group( App & of, const std::string & name, const std::string & does ) {
   App * result = of.add_subcommand( name, does );
   result->fallthrough(); // -j and the like are taken after the verb too
   result->footer( "" );
   result->group( "Verbs" );
   return result;
}

CLI::Option * Grammar::name( App * verb, const char * what, const char * help, bool required ) {
   return verb->add_option( what, name_, help )->type_name( "" )->required( required )->check( notEmpty() );
}

} // namespace Maintctl
