#include "Maintctl/CommandLine.h"

#include "Config/Suggestion.h"
#include "Platform/FastLog/FastLog.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
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

/// The options and positions of the verbs, each with one function. The values that CLI11 writes into live here; the
/// verb that was given makes its command of them afterwards.
class Grammar {
 public:
   explicit Grammar( const std::string & version )
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
      events();
      diagnosis();
      configuration();
      simulation();
   }

   Invocation parse( std::vector< std::string > arguments ) {
      std::reverse( arguments.begin(), arguments.end() );
      app_.parse( std::move( arguments ) );
      invocation_.progress = !noProgress_;
      invocation_.command = command_();
      return std::move( invocation_ );
   }

   /// The text that CLI11 gives when help or the version was asked for.
   std::string information( const CLI::ParseError & error ) const {
      std::ostringstream out, ignored;
      app_.exit( error, out, ignored );
      return out.str();
   }

   /// What is wrong with the arguments that CLI11 refused.
   std::string
   complaint( const std::vector< std::string > & arguments, const CLI::ParseError & error ) const {
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
         if ( const auto word = unknownWord( arguments, *level, verbs ) )
            return "unknown command \"" + path + *word + "\"" + Config::didYouMean( *word, verbs );
         return "a command is missing" +
                ( path.empty() ? "" : " after \"" + path.substr( 0, path.size() - 1 ) + "\"" ) +
                "; \"maintctl " + path + "--help\" lists them";
      }
      return error.what();
   }

 private:
   using App = CLI::App;

   static std::vector< std::string > verbsOf( const App & app ) {
      std::vector< std::string > result;
      for ( const App * verb : app.get_subcommands( []( const App * ) { return true; } ) )
         result.push_back( verb->get_name() );
      return result;
   }

   /// `show ` for the verbs of show; empty for those of the program.
   static std::string pathOf( const App & app ) { return app.get_parent() ? app.get_name() + " " : ""; }

   /// The word in the place of a verb of this level.
   static std::optional< std::string > unknownWord(
      const std::vector< std::string > & arguments, const App & level,
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

   /// A verb whose command is made by `make`.
   App *
   verb( App & of, const std::string & name, const std::string & does, std::function< Command() > make ) {
      App * result = group( of, name, does );
      result->callback( [this, make = std::move( make )] { command_ = make; } );
      return result;
   }
   App * group( App & of, const std::string & name, const std::string & does ) {
      App * result = of.add_subcommand( name, does );
      result->fallthrough(); // -j and the like are taken after the verb too
      result->footer( "" );
      result->group( "Verbs" );
      return result;
   }

   CLI::Option * name( App * verb, const char * what, const char * help, bool required = true ) {
      return verb->add_option( what, name_, help )
         ->type_name( "" )
         ->required( required )
         ->check( notEmpty() );
   }
   static CLI::Validator notEmpty() {
      return CLI::Validator( []( std::string & text ) { return text.empty() ? "is empty" : ""; }, "" );
   }

   /// An option that is read by the parsers of the configuration.
   template < class Value, class Into >
   static CLI::Option *
   add( App * verb, const char * option, const char * unit, Into & into, const char * help ) {
      return verb
         ->add_option_function< std::string >(
            option,
            [&into, option]( const std::string & text ) {
               const auto parsed = Value::parse( text );
               if ( !parsed )
                  throw CLI::ValidationError( option, parsed.error );
               into = *parsed.value;
            },
            help )
         ->type_name( unit );
   }
   template < class Into >
   CLI::Option * duration( App * verb, const char * option, Into & into, const char * help ) {
      return add< Config::Duration >( verb, option, "TIME", into, help );
   }
   template < class Into >
   CLI::Option * rate( App * verb, const char * option, Into & into, const char * help ) {
      return add< Config::Rate >( verb, option, "RATE", into, help );
   }

   void operations() {
      using Operation = Operate::Operation;
      const auto operation =
         [this]( const char * verbName, const char * does, Operation which, const char * until ) {
            App * enter = verb( app_, verbName, does, [this, which] {
               return Operate{ which, name_, reason_, wait_ || timeout_, timeout_ };
            } );
            name( enter, "UNIT", "The maintenance unit" );
            enter->add_option( "--reason", reason_, "Why; it is shown with the unit" )->type_name( "TEXT" );
            enter->add_flag( "--wait", wait_, until );
            duration(
               enter, "--timeout", timeout_,
               "Wait, but no longer than this (0s: look once); the operation itself goes on" );
         };
      operation(
         "enter", "Put a unit into maintenance", Operation::enter,
         "Wait until it is under maintenance, and show the progress" );
      operation(
         "exit", "Bring a unit back; during an enter, cancel that", Operation::exit,
         "Wait until it is back to normal, and show the progress" );

      App * wait = verb( app_, "wait", "Wait until a unit is under maintenance, or back to normal", [this] {
         return Wait{ name_, for_ == "maintenance" ? Operation::enter : Operation::exit, timeout_ };
      } );
      name( wait, "UNIT", "The maintenance unit" );
      wait->add_option( "--for", for_, "What to wait for" )
         ->type_name( "maintenance|normal" )
         ->required()
         ->check( CLI::IsMember( { "maintenance", "normal" } ).description( "" ) );
      duration( wait, "--timeout", timeout_, "Wait no longer than this; 0s: look once" );
   }

   /// Lets the verb be carried out over and over.
   void watchable( App * verb ) {
      CLI::Option * watch = verb->add_flag(
         "--watch", watch_,
         "Over and over, until Ctrl-C: drawn on a terminal, a line for each change elsewhere" );
      duration( verb, "--interval", interval_, "Between two looks, at least 1s; without it 1s" )
         ->needs( watch );
   }
   Show showCommand( Show::What what ) const {
      // The flag is taken behind each of them, as all that stands before the verb.
      if ( watch_ && what > Show::What::interface )
         throw CLI::ValidationError( "--watch", "is for units and interfaces" );
      if ( interval_ && interval_->seconds() == 0 )
         throw CLI::ValidationError( "--interval", "must be at least 1s" );
      return { what, name_, watch_, interval_.value_or( Config::Duration::fromSeconds( 1 ) ) };
   }

   void shows() {
      using What = Show::What;
      App * show = group(
         app_, "show",
         "Show units | unit UNIT | interfaces [UNIT] | interface NAME | profiles | groups | counters | "
         "agent" );

      watchable( show );
      show->callback( [this, show] {
         if ( !show->get_subcommands().empty() )
            return;
         if ( !watch_ )
            throw CLI::RequiredError( "A subcommand" );
         command_ = [this] { return showCommand( What::units ); };
      } );
      const auto what = [&]( const char * verbName, const char * does, What which ) {
         return verb( *show, verbName, does, [this, which] { return showCommand( which ); } );
      };
      watchable( what( "units", "All units, one line each", What::units ) );
      App * unit = what( "unit", "One unit in full", What::unit );
      name( unit, "UNIT", "The maintenance unit" );
      watchable( unit );
      App * interfaces = what( "interfaces", "The interfaces, one line each", What::interfaces );
      name( interfaces, "UNIT", "Only those of this unit", false );
      watchable( interfaces );
      App * interface = what( "interface", "One interface in full", What::interface );
      name( interface, "NAME", "The interface" );
      watchable( interface );
      what( "profiles", "The profiles in effect", What::profiles );
      what( "groups", "The groups, their interfaces and units", What::groups );
      what( "counters", "The debug counters of the plug-in", What::counters );
      what( "agent", "The health of the agent", What::agent );

      App * explain =
         verb( app_, "explain", "Say what a unit still waits for, interface by interface", [this] {
            return Explain{ name_ };
         } );
      name( explain, "UNIT", "The maintenance unit" );
   }

   void past() {
      App * history = verb( app_, "history", "List maintenances, newest first, those that go on too", [this] {
         return ShowHistory{ name_, limit_ };
      } );
      name( history, "UNIT", "Only those of this unit", false );
      history->add_option( "--limit", limit_, "No more than this" )
         ->type_name( "COUNT" )
         ->capture_default_str()
         ->check( CLI::Range( 1U, 1000U ).description( "" ) );

      App * report = verb( app_, "report", "Tell all that is known of one maintenance", [this] {
         if ( csv_ && invocation_.json )
            throw CLI::ValidationError( "--csv", "cannot be had together with --json" );
         return Report{ id_, csv_ };
      } );
      report->add_option( "ID", id_, "Its number, which \"maintctl history\" gives" )
         ->type_name( "" )
         ->required()
         ->check( CLI::PositiveNumber.description( "" ) );
      report->add_flag( "--csv", csv_, "As comma-separated values, a line for each interface" );
   }

   void events() {
      App * events = verb( app_, "events", "Show what has happened, or with --follow what happens", [this] {
         return Events{ after_, events_, follow_ };
      } );
      events->add_option( "--after", after_, "What came after the event of this number" )->type_name( "SEQ" );
      events->add_option( "--last", events_, "Only so many; without it and --after the newest 20" )
         ->type_name( "COUNT" )
         ->check( CLI::Range( 1U, 4096U ).description( "" ) );
      events->add_flag(
         "--follow", follow_,
         "Go on with what happens, until interrupted, also over an agent that is started again; with -j one "
         "object "
         "a line" );
   }

   void diagnosis() {
      verb( app_, "dump", "Show the plug-in's diagnostic text", [] { return Dump{}; } );

      App * fastLog =
         verb( app_, "fastlog", "Show the last events, also those of an agent that is gone", [this] {
            return ShowFastLog{ file_, last_, run_ };
         } );
      fastLog->add_option( "--file", file_, "The log; without it \"fastlog\" beside the control socket" )
         ->type_name( "PATH" );
      fastLog->add_option( "--last", last_, "Only the newest so many lines" )
         ->type_name( "COUNT" )
         ->check( CLI::PositiveNumber.description( "" ) );
      fastLog->add_option( "--run", run_, "Of an earlier run of the agent: 1 is the one before" )
         ->type_name( "COUNT" )
         ->check( CLI::Range( 1U, FastLog::keptRuns ).description( "" ) );

      App * trace =
         verb( app_, "trace", "Show the trace levels, or set some", [this] { return Trace{ levels_ }; } );
      trace
         ->add_option_function< std::vector< std::string > >(
            "NAME=LEVEL",
            [this]( const std::vector< std::string > & texts ) {
               for ( const std::string & text : texts )
                  levels_.push_back( levelOf( text ) );
            },
            "Levels to set: 0 to 9, -1 or off for none" )
         ->type_name( "" );

      App * release = verb(
         app_, "release", "Raise a link that we hold down, whatever the stages say; needs --force", [this] {
            return Release{ name_, force_ };
         } );
      name( release, "INTF", "The interface" );
      release->add_flag( "--force", force_, "Really do it" );
   }

   static std::pair< std::string, int > levelOf( const std::string & text ) {
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

   void configuration() {
      App * validate = verb( app_, "validate", "Check a configuration file, without an agent", [this] {
         return Validate{ name_ };
      } );
      name( validate, "FILE", "The configuration file; its drop-ins are in maintd.d beside it" );
      verb( app_, "reload", "Apply the agent's configuration file again", [] { return Reload{}; } );
   }

   void simulation() {
      App * simulated = group( app_, "simulated", "Drive the simulated switch: traffic | link | advance" );
      simulated->require_subcommand( 1 );

      App * traffic =
         verb( *simulated, "traffic", "Set the traffic of a port", [this] { return trafficCommand(); } );
      name( traffic, "PORT", "The simulated port" );
      CLI::Option * in = rate( traffic, "--in", in_, "Received" );
      CLI::Option * out = rate( traffic, "--out", out_, "Sent" );
      in->needs( out );
      out->needs( in );
      rate( traffic, "--to", to_, "Both directions" )->excludes( in )->excludes( out );
      duration( traffic, "--ramp", ramp_, "Change evenly over this time" );

      App * link = verb( *simulated, "link", "Set the carrier of a port", [this] {
         return SimulatedLink{ name_, state_ == "up" };
      } );
      name( link, "PORT", "The simulated port" );
      link->add_option( "STATE", state_, "up or down" )
         ->type_name( "" )
         ->required()
         ->check( CLI::IsMember( { "up", "down" } ).description( "" ) );

      App * advance =
         verb( *simulated, "advance", "Let virtual time pass", [this] { return SimulatedAdvance{ by_ }; } );
      duration( advance, "TIME", by_, "How much" )->type_name( "" )->required();
   }

   Command trafficCommand() const {
      if ( to_ )
         return SimulatedTraffic{ name_, *to_, *to_, ramp_ };
      if ( !in_ )
         throw CLI::RequiredError( "--to, or --in and --out" );
      return SimulatedTraffic{ name_, *in_, *out_, ramp_ };
   }

   App app_;
   Invocation invocation_;
   std::function< Command() > command_;

   std::string name_, for_, state_;
   std::optional< std::string > reason_, file_;
   std::optional< std::size_t > last_;
   std::optional< std::uint64_t > after_;
   std::optional< std::uint64_t > events_;
   bool follow_ = false;
   unsigned run_ = 0, limit_ = ShowHistory().limit, id_ = 0;
   std::optional< Config::Duration > timeout_, ramp_, interval_;
   std::optional< Config::Rate > in_, out_, to_;
   Config::Duration by_;
   std::vector< std::pair< std::string, int > > levels_;
   bool noProgress_ = false, wait_ = false, force_ = false, watch_ = false, csv_ = false;
};

/// Also of a command line that cannot be understood otherwise.
bool wantsJson( const std::vector< std::string > & arguments ) {
   for ( const std::string & argument : arguments ) {
      if ( argument == "--" )
         break;
      if ( argument == "-j" || argument == "--json" )
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
