#pragma once

#include "Agent/Control/ControlModel.h"
#include "Agent/Model/StateText.h"

/// Purpose: what of the model belongs together when it is shown. Used by the answers of the control API only.
namespace Agent {

/// From one sample of an interface to the next.
inline constexpr unsigned secondsPerSample = 5;

/// The interfaces of a unit by name, each once.
std::map< std::string, Wire::IntfId >
interfacesOfUnit( const ControlModel & model, const std::string & unit );
/// The units of an interface.
std::set< std::string > unitsOfInterface( const ControlModel & model, const Wire::IntfId & intf );
/// All interfaces that are in a group or have a record, by name.
std::map< std::string, Wire::IntfId > shownInterfaces( const ControlModel & model );
/// The interface of a name, the empty id if there is none; also one that nobody has put into a group.
Wire::IntfId interfaceNamed( const ControlModel & model, const std::string & name );
/// The profile selected for an interface with the default resolved, empty if there is none.
std::string profileOf( const ControlModel & model, const Wire::IntfId & intf );
/// What an interface carries: as its monitoring has it; where that has none of the last SampleSource::freshFor seconds, or
/// has ended with a shutdown, as of the last sample; nothing: it is not known.
std::optional< Interface::IntfRates >
ratesOf( const ControlModel & model, const ControlCommands & commands, const Wire::IntfId & intf );
/// Whether the rates of a record are those of now. It keeps the last ones of a link that is shut or starved for ever.
bool isFresh( const Maintenance::MonIntfStatus & record, const ControlCommands & commands );
/// Since when, in seconds of the clock, all interfaces of a unit that have a record have been where they are.
double unchangedSince( const ControlModel & model, const std::string & unit );

/// "numFooBar" as "num-foo-bar".
std::string kebabCase( std::string_view camelCase );

/// Why an interface that has a record does not count as drained, in words for an operator.
std::string waitingText(
   const ControlModel & model, const ControlCommands & commands, const Maintenance::MonIntfStatus & record );
/// What a stage does, has done or will do, and what happens if it fails, in words for an operator.
std::string stageText( const ControlCommands::Stage & stage, Maintenance::Unit::UnitState stateOfUnit );
/// Why a unit does not complete while an interface is up that nobody can count.
std::string uncountedText( const std::string & why );
/// Why an interface has no record.
std::string skippedText(
   const ControlModel & model, const Wire::IntfId & intf, Maintenance::Unit::UnitState stateOfUnit );

} // namespace Agent
