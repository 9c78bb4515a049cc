#pragma once

#include "Tests/Reference/EventLog.h"

#include <memory>
#include <stdexcept>

/// Purpose: what the drain-watching plug-in has to decide and to publish after each event, worked out a second time from
/// its rules and from nothing else: a plain account of who knows what, to compare the plug-in with.
namespace Reference {

/// The story asks for what never happens to the plug-in in service: it would fail an assertion.
class Unreachable : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};

class Model {
 public:
   /// The plug-in does not run yet.
   explicit Model( const World & world );
   ~Model();
   Model( const Model & ) = delete;
   Model & operator=( const Model & ) = delete;

   /// Takes one event; what it decided replaces the last decisions. Throws Unreachable; the model is of no use then.
   void apply( const Event & event );

   /// After the event. Good for as long as the model; changes with each event.
   const Published & published() const;
   /// Of the last event, sorted.
   const std::vector< Decision > & decisions() const;

 private:
   class Rules;
   std::unique_ptr< Rules > rules_;
};

} // namespace Reference
