#pragma once

#include "MaintenancePlugin/DrainWatchSmDebugCounters.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/Trace.h"

#include <memory>
#include <vector>

/// Purpose: what a test has seen happen, as whole texts in their order, so that a piece that is missing, added or out of
/// place shows.
namespace MaintenanceMode {

using Lines = std::vector< Vel::String >;

/// The traces of one state machine and, between them, what the reactors of a test note.
class Sequence {
 public:
   /// Takes the traces up to a level.
   explicit Sequence( const char * facility = "DrainWatchSm", int level = 9 )
      : facility_( facility ), traces_( level ) {}

   template < class... Pieces >
   void note( const Pieces &... pieces ) {
      take();
      lines_.push_back( Vel::text( pieces... ) );
   }
   const Lines & lines() {
      take();
      return lines_;
   }
   /// The lines of the fast log from the state machine's own source files.
   Lines logged() const {
      Lines texts;
      for ( const auto & line : log_.lines() )
         if ( line.file.starts_with( Vel::text( "MaintenancePlugin/", facility_ ) ) )
            texts.push_back( line.text );
      return texts;
   }
   /// Whether that is a trace of this level, of any facility.
   bool traced( std::string_view text, int level ) const { return traces_.has( text, level ); }
   void clear() {
      lines_.clear();
      traces_.clear();
      log_.clear();
      taken_ = 0;
   }

 private:
   void take() {
      for ( ; taken_ < traces_.lines().size(); ++taken_ )
         if ( traces_.lines()[taken_].facility == facility_ )
            lines_.push_back( traces_.lines()[taken_].text );
   }

   const Vel::String facility_;
   Vel::TraceCapture traces_;
   FastLog::Capture log_;
   std::size_t taken_ = 0;
   Lines lines_;
};

/// Reactors of one kind to several entities, switched on.
template < class Reactor >
class Watches {
 public:
   template < class Entity, class Owner >
   void add( const Vel::Ptr< Entity > & entity, Owner * owner ) {
      watches_.push_back( std::make_unique< Vel::Watch< Reactor > >() );
      watches_.back()->is( entity, owner ).hasNotificationActiveIs( true );
   }

 private:
   std::vector< std::unique_ptr< Vel::Watch< Reactor > > > watches_;
};

/// By how much counters have moved since this was made.
class CounterChanges {
 public:
   explicit CounterChanges( DrainWatchSmDebugCounters & counters ) : counters_( counters ) {
      for ( const auto & attribute : counters.typeInfo().attributes() )
         before_.push_back( value( attribute ) );
   }
   /// "numMaintEnter 1, numMaintExit 2": those that have moved, in their order; empty if none has.
   Vel::String text() const {
      Vel::String moved;
      auto before = before_.begin();
      for ( const auto & attribute : counters_.typeInfo().attributes() )
         if ( const Vel::U32 change = value( attribute ) - *before++ )
            moved += Vel::text( moved.empty() ? "" : ", ", attribute.name, " ", change );
      return moved;
   }

 private:
   Vel::U32 value( const Vel::AttributeInfo & attribute ) const {
      return *static_cast< const Vel::U32 * >( attribute.raw( counters_ ) );
   }

   DrainWatchSmDebugCounters & counters_;
   std::vector< Vel::U32 > before_;
};

} // namespace MaintenanceMode
