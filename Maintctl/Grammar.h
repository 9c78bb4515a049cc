#pragma once

#include "Maintctl/Invocation.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Purpose: the words that the command line is made of: verbs, their positions, their options, and the help on them.
namespace Maintctl {

/// The verbs with their options and positions, in chapters, each with a source file of its own. The values that CLI11
/// writes into live here; the verb that was given makes its command of them afterwards. One command line each.
class Grammar {
 public:
   explicit Grammar( const std::string & version );
   Grammar( const Grammar & ) = delete; // CLI11 holds the addresses of the values

   /// Once.
   /// \param arguments  without the name of the program
   /// \throws CLI::ParseError  if they make no sense, or help or the version is asked for
   Invocation parse( std::vector< std::string > arguments );

   /// The text that CLI11 gives when help or the version was asked for.
   std::string information( const CLI::ParseError & error ) const;

   /// What is wrong with the arguments that CLI11 refused.
   std::string complaint( const std::vector< std::string > & arguments, const CLI::ParseError & error ) const;

 private:
   using App = CLI::App;

   // The chapters. Verbs are listed by the help in the order in which they are added.
   void operations();
   void shows();
   void past();
   void diagnosis();
   void configuration();
   void simulation();

   /// A verb whose command is made by `make`.
   App *
   verb( App & of, const std::string & name, const std::string & does, std::function< Command() > make );
   App * group( App & of, const std::string & name, const std::string & does );
   CLI::Option * name( App * verb, const char * what, const char * help, bool required = true );

   static CLI::Validator notEmpty();

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
   static CLI::Option * duration( App * verb, const char * option, Into & into, const char * help ) {
      return add< Config::Duration >( verb, option, "TIME", into, help );
   }
   template < class Into >
   static CLI::Option * rate( App * verb, const char * option, Into & into, const char * help ) {
      return add< Config::Rate >( verb, option, "RATE", into, help );
   }

   /// Lets the verb be carried out over and over.
   void watchable( App * verb );
   /// What is noted down with an operation. `each`: to be said of several units.
   void noted( App * of, const std::string & each = "" );
   void why( App * of, const char * help );
   Note note() const { return { reason_, requestKey_, with_ }; }
   Show showCommand( Show::What what ) const;
   /// The options of `enter` that set times.
   void times( App * enter );
   Command trafficCommand() const;

   App app_;
   Invocation invocation_;
   std::function< Command() > command_;

   std::string name_, for_, state_;
   std::vector< std::string > units_;
   std::optional< std::string > session_, requestKey_;
   std::map< std::string, std::string > with_;
   std::optional< std::string > reason_, file_;
   std::optional< std::size_t > last_;
   std::optional< std::uint64_t > after_, events_;
   unsigned run_ = 0, limit_ = ShowHistory().limit, id_ = 0;
   std::optional< Config::Duration > timeout_, ramp_, interval_;
   std::optional< Config::Rate > in_, out_, to_;
   Config::Duration by_;
   EnterTimes times_;
   std::vector< std::pair< std::string, int > > levels_;
   bool noProgress_ = false, wait_ = false, force_ = false, watch_ = false, csv_ = false, follow_ = false;
};

} // namespace Maintctl
