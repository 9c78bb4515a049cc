#pragma once

#include "Agent/Control/ControlModel.h"
#include "Agent/Control/InterfaceFields.h"

/// Purpose: what the control API shows, as JSON text.
///
/// Keys are kebab-case, times RFC 3339 in UTC, rates bits per second, 64-bit numbers text; what is unknown or never is
/// null, and nothing is left out.
namespace Agent {

class Answers {
 public:
   /// Both are the caller's and outlive this object.
   Answers( const ControlModel & model, const ControlCommands & commands )
      : model_( model ), commands_( commands ) {}

   std::string units() const;
   /// Throws Api::Error (not found) if there is no such unit, as those below do.
   std::string unit( const std::string & name ) const;
   std::string explanation( const std::string & unit ) const;
   /// Interfaces that are in a group or have a record.
   std::string interfaces( const InterfaceFields & fields = {} ) const;
   std::string interfacesOf( const std::string & unit, const InterfaceFields & fields = {} ) const;
   /// Any interface that exists.
   std::string interface( const std::string & name ) const;
   std::string profiles() const;
   std::string groups() const;
   std::string counters() const;
   std::string agent() const;
   /// Whether the agent is well, and why not.
   std::string health() const;
   static std::string traceLevels();
   struct OperationsAsked {
      std::string unit;                      ///< empty: of all
      std::optional< OperationState > state; ///< nothing: all
      Vel::U32 limit = 1;
   };
   /// Newest first. Throws Api::Error (not found) if nobody knows the unit.
   std::string operations( const OperationsAsked & asked ) const;
   std::string operation( Vel::U32 id ) const;
   /// What has become of a request for an operation of a unit.
   std::string accepted( const std::string & unit, const ControlCommands::Taken & taken ) const;
   /// A time of the agent's clock.
   std::string simulatedTime( double clockSeconds ) const;

   struct Json; ///< see AnswersJson.h

 private:
   std::string listOf(
      const std::map< std::string, Wire::IntfId > & interfaces, const InterfaceFields & fields = {} ) const;
   const ControlModel & model_;
   const ControlCommands & commands_;
};

} // namespace Agent
