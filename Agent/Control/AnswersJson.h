#pragma once

#include "Agent/Control/Answers.h"
#include "Agent/Control/Sentences.h"

#include <nlohmann/json_fwd.hpp>

/// Purpose: the shapes of the answers as JSON values, one source file a chapter. Used by the answers of the control API
/// only.
namespace Agent {

struct Answers::Json {
   using json = nlohmann::json;
   const ControlModel & model;
   const ControlCommands & commands;

   explicit Json( const Answers & answers ) : model( answers.model_ ), commands( answers.commands_ ) {}

   // AnswersOfUnits.cpp
   json unit( const Maintenance::Unit::Status & status ) const;
   /// The stages of the present or last run.
   json stages( const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const;
   UnitFacts
   facts( const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const;

   /// Those that are to be held down and could not be shut.
   static json notShut( const UnitFacts & facts );

   // AnswersOfTimes.cpp
   /// The times that are set for the present maintenance.
   json times( const std::string & unit ) const;

   // AnswersOfInterfaces.cpp
   json interface( const Wire::IntfId & intf ) const;
   json interface( const Wire::IntfId & intf, const InterfaceFields & fields ) const;
   /// With what the switch says against its shutdown.
   std::optional< ReasonFacts > reasonFacts( const Wire::IntfId & intf ) const;
   /// Why it is not done yet; null if it has no record.
   json reason( const Wire::IntfId & intf ) const;
   /// \param rates  that are shown of it
   json reason(
      const Wire::IntfId & intf, const std::optional< Interface::IntfRates > & rates,
      const InterfaceFields & fields ) const;

   // AnswersOfWaiting.cpp
   json explanation( const Maintenance::Unit::Status & status ) const;
   /// What a unit waits for at an interface.
   json waiting( const std::string & name, const Maintenance::MonIntfStatus & record ) const;
   /// An interface without a record that keeps the unit from completing all the same.
   json
   waitingUncounted( const std::string & name, const Wire::IntfId & intf, const std::string & why ) const;
   /// What is configured for a unit and is not there.
   std::set< std::string > missingInterfaces( const std::string & unit ) const;

   // AnswersOfStuck.cpp
   /// Why the unit does not get on, be it that a command neither begins nor ends, or that all has drained and nothing
   /// comes of it; empty: it does get on.
   std::string
   stuckReason( const Maintenance::Unit::Status & status, const ControlCommands::Progress & progress ) const;
   std::string stuckWatching(
      const std::string & unit, const ControlCommands::Progress & progress, double stageSince ) const;

   // AnswersOfOperations.cpp
   static json operation( const Operation & operation );

   // Answers.cpp
   json profile( const IntfMaintenanceProfile::Status & profile ) const;
   json group( const std::string & name, const ControlCommands::Group & configured ) const;
   json problems( const std::vector< Problem > & list ) const;
   json agent() const;
   /// Seconds from now on to a time of the agent's clock, 0 if it has passed.
   json ahead( std::optional< double > clockSeconds ) const;
   /// A time of the agent's clock; null before it began.
   json time( double clockSeconds ) const;
   /// Null if it is not finite.
   static json number( double value );
   static json number( const std::optional< double > & value );
   static json textOrNull( const std::string & value );
   static json counter( Vel::U64 value );
};

} // namespace Agent
