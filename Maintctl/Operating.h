#pragma once

#include "Api/Operations.h"
#include "Maintctl/Invocation.h"
#include "Maintctl/Remote.h"
#include "Maintctl/Run.h"
#include "Maintctl/Table.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Purpose: asks for operations of units, and waits for them if that is wanted.
/// Order: construct, then run() once.
///
/// 1. A request for each unit, in the order given; one that is refused keeps none of the others from being made. What is
///    waited for is waited for when all have been asked for, under one timeout.
/// 2. Of one unit the answer, or the failure, is all that is told. Of several a line each is, or as JSON one list with
///    an object each: the answer, or the unit and its error.
namespace Maintctl {

class Operating {
 public:
   Operating( const Operate & command, Remote & remote, World & world )
      : command_( command ), remote_( remote ), world_( world ), output_( world.output ) {}

   /// Throws Failure with the worst status if anything has failed; without a message if that has been told.
   void run();

 private:
   struct Unit {
      std::string name;
      bool taken = false;
      std::string answer; ///< the last one; empty: there is none
      std::string line;   ///< the same for people
      std::string failure;
      std::optional< std::uint64_t > operation = {}; ///< that has taken it; nothing: none is known
   };

   std::string request( const std::string & unit ) const;
   /// Notes what is told of an answer; the text is made for people only.
   template < class Text >
   void tellOf( Unit & unit, Text text ) const;
   /// What an enter with times has done at once, in words: of a unit that was on its way it has changed the times, and
   /// begun nothing. Empty: it has begun something.
   std::string doneAtOnce( const Api::Accepted & accepted ) const;
   void ask( Unit & unit );
   void wait( Unit & unit, double begun );
   /// Carries out one step for a unit of several; whether to go on with others.
   template < class Step >
   bool attempt( Unit & unit, Step step );
   void several();

   const Operate & command_;
   Remote & remote_;
   World & world_;
   Output & output_;
   std::string session_; ///< from where the operator comes, for an enter; empty: nobody knows
   ExitStatus worst_ = ExitStatus::done;
};

/// The one of two that says more: interrupted, then not reachable, failed, needs force, not met, done.
ExitStatus worseOf( ExitStatus a, ExitStatus b );

/// What an answer says of the operation that has done it: ` already, operation 7; this was asked for before`, or a part.
std::string doneText(
   bool changed, const std::optional< std::uint64_t > & operation, bool repeated,
   const std::string & between = "" );

/// A table of operations, and all of one.
std::string operationsText( const std::vector< Api::Operation > & operations, std::size_t room = endless );
std::string operationText( const Api::Operation & operation, std::size_t room = endless );
/// `key=value, key=value`; empty: there are none.
std::string pairsText( const std::map< std::string, std::string > & pairs );

} // namespace Maintctl
