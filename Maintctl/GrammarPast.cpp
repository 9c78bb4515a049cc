#include "Maintctl/Grammar.h"

#include "Maintctl/Numbers.h"

namespace Maintctl {

void Grammar::past() {
   const auto limit = [this]( App * of ) {
      of->add_option( "--limit", limit_, "No more than this" )
         ->type_name( "COUNT" )
         ->capture_default_str()
         ->check( number( 1, 1000 ) );
   };
   App * history = verb( app_, "history", "List maintenances, newest first, those that go on too", [this] {
      return ShowHistory{ name_, limit_ };
   } );
   name( history, "UNIT", "Only those of this unit", false );
   limit( history );

   App * report = verb( app_, "report", "Tell all that is known of one maintenance", [this] {
      if ( csv_ && invocation_.json )
         throw CLI::ValidationError( "--csv", "cannot be had together with --json" );
      return Report{ id_, csv_ };
   } );
   report->add_option( "ID", id_, "Its number, which \"maintctl history\" gives" )
      ->type_name( "" )
      ->required()
      ->check( id() );
   report->add_flag( "--csv", csv_, "As comma-separated values, a line for each interface" );

   App * operations =
      verb( app_, "operations", "List what was asked for, newest first, what goes on too", [this] {
         return ShowOperations{ name_, state_, limit_ };
      } );
   name( operations, "UNIT", "Only those of this unit", false );
   operations->add_option( "--state", state_, "Only those that are so" )
      ->type_name( "running|done|failed|cancelled" )
      ->check( CLI::IsMember( { "running", "done", "failed", "cancelled" } ).description( "" ) );
   limit( operations );
   App * operation = verb(
      app_, "operation", "Tell what has become of one operation", [this] { return ShowOperation{ id_ }; } );
   operation->add_option( "ID", id_, "Its number, which \"maintctl operations\" gives" )
      ->type_name( "" )
      ->required()
      ->check( id() );

   App * events = verb( app_, "events", "Show what has happened, or with --follow what happens", [this] {
      return Events{ after_, events_, follow_ };
   } );
   events->add_option( "--after", after_, "What came after the event of this number" )
      ->type_name( "SEQ" )
      ->check( number( 0, std::numeric_limits< std::uint64_t >::max() ) );
   events->add_option( "--last", events_, "Only so many; without it and --after the newest 20" )
      ->type_name( "COUNT" )
      ->check( number( 1, 4096 ) );
   events->add_flag(
      "--follow", follow_,
      "Go on with what happens, until interrupted, also over an agent that is started again; with -j one "
      "object a line" );
}

} // namespace Maintctl
