#pragma once

#include "Agent/Control/ControlModel.h"

/// Purpose: what a monitoring system scrapes: the state of units, interfaces and the agent as figures.
/// Owner: the control API.
///
/// Names begin with maint_. Units are base units: seconds, bytes (also where the rest of the API says bits), and times
/// are Unix timestamps, so that whoever asks can work out an age at any moment. A figure that is not known has no sample.
///
/// How a state is told. A unit has a sample for each of its four states, 0 or 1: units are few, and a graph of a state
/// over time needs the zeros. An interface has a sample only for the state it is in: interfaces are many, states that it
/// is not in say nothing, and a series that ends is what an alert on it wants to see.
///
/// How many series there are depends on the configuration and on the interfaces of its groups, never on what happens:
/// no reason, name of an operator, failure text or generation is a label.
namespace Agent {

class Metrics {
 public:
   /// Both are the caller's and outlive this object.
   Metrics( const ControlModel & model, const ControlCommands & commands )
      : model_( model ), commands_( commands ) {}

   /// Events, and those who read them.
   struct EventReaders {
      Vel::U64 events = 0;  ///< that may be told, ever
      unsigned count = 0;   ///< at present
      Vel::U64 dropped = 0; ///< events that any of them have missed
   };
   /// In the form of Exposition; metrics in a fixed order, samples in the order of names.
   std::string text( const EventReaders & readers ) const;

 private:
   struct Writer;
   const ControlModel & model_;
   const ControlCommands & commands_;
};

} // namespace Agent
