#pragma once

#include "Agent/Model/Operation.h"
#include "Agent/Model/UnitRun.h"
#include "Api/Error.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <functional>
#include <map>
#include <optional>
#include <set>

/// Purpose: gives every change that is asked for a number under which it can be followed, and does once what is asked for
/// twice.
/// Owner: the agent, which lets every enter, exit, release and reload go through ask(), its own ones too, and calls look()
/// in each turn before it commits. Takes part in no decision about units.
///
/// Invariants:
/// 1. Ids rise from 1, and none is given twice.
/// 2. An operation is written in the turn of its change, and there is none without a change. So no crash leaves one
///    without the other.
/// 3. A unit has one running operation at most: the one that its run names (UnitRun::operation()).
/// 4. What a request key was answered is answered again, whatever has happened to the unit since, as long as the key is
///    kept. What was refused is not remembered.
namespace Agent {

class Operations {
 public:
   /// All given.
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const UnitRunDir > unitRunDir;
      Vel::Ptr< OperationDir > operationDir;
   };
   struct Request {
      OperationKind kind = OperationKind::enter;
      Vel::String unitName; ///< as of an Operation
      Vel::String by;
      Vel::String reason;
      Vel::String with = {};    ///< pairs
      Vel::String key = {};     ///< empty: none
      Vel::U64 fingerprint = 0; ///< of all that the request asks for, apart from its kind and unit
      Vel::String failure = {}; ///< that makes the agent ask for an exit; empty: somebody else asks
   };
   struct Answer {
      std::optional< Api::Error > refused;
      /// That does it, has done it or does it already; that stands in the way of what is refused. 0: there is none.
      Vel::U32 operation = 0;
      bool changed = false;  ///< by this request
      bool repeated = false; ///< the key has been used for it before
   };
   struct Carried {
      std::optional< Api::Error > refused;
      bool changed = false;  ///< something, although nothing began: it is done
      Vel::String text = {}; ///< what is done then, a sentence
   };
   /// Does what is asked for, with the id that the run of the unit is to name if anything begins.
   using Carry = std::function< Carried( Vel::U32 operation ) >;

   /// \param wallTime  seconds since 1970, now
   /// \param mostKept  operations that have ended, and keys
   Operations( Model model, std::function< double() > wallTime, Vel::U32 mostKept = OperationDir::mostKept );
   Operations( const Operations & ) = delete;
   Operations & operator=( const Operations & ) = delete;

   /// What was answered before to a request with this key, or that it was another request; nothing: it is new.
   std::optional< Answer > repeated( const Request & request ) const;
   Answer ask( const Request & request, const Carry & carry );
   /// Ends what has come to its end.
   void look();

 private:
   Vel::U32 operationOf( const Vel::String & unitName ) const;
   void begin( const Request & request, Vel::U32 id );
   void lookAt( Operation & operation );
   void end( Operation & operation, OperationState state, Vel::U32 by, const Vel::String & text );
   void remember( const Request & request, Vel::U32 operation );
   void forgetOld();

   const Model model_;
   const std::function< double() > wallTime_;
   const Vel::U32 mostKept_;
   std::set< Vel::U32 > running_;
   std::map< Vel::U64, Vel::String > keys_; ///< by the order of their use
};

} // namespace Agent
