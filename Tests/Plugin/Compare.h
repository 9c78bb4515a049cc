#pragma once

#include "Tests/Reference/EventLog.h"

namespace Tests {

struct Difference {
   std::string field; ///< for example "records[3].cur.in"; empty: there is none
   std::string plugin, model;

   explicit operator bool() const { return !field.empty(); }
   std::string text() const { return field + ": plug-in " + plugin + ", model " + model; }
};

/// The first difference between what the plug-in and what the model makes of the same events.
Difference difference( const Reference::Published & plugin, const Reference::Published & model );
Difference difference(
   const std::vector< Reference::Decision > & plugin, const std::vector< Reference::Decision > & model );

} // namespace Tests
