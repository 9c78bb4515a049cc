#pragma once

#include "Agent/Control/Exposition.h"
#include "Agent/Control/Metrics.h"
#include "Agent/Control/Sentences.h"

/// Purpose: writes the metrics, one source file a chapter. Used by the metrics only.
namespace Agent {

struct Metrics::Writer {
   using Type = Exposition::Type;
   /// What is known of a unit and of an interface, looked up once.
   struct UnitSeen {
      std::string name;
      const Maintenance::Unit::Status * status;
      const UnitRun * run;
      ControlCommands::Progress progress;
      std::map< std::string, Wire::IntfId > members;
   };
   struct IntfSeen {
      std::string name;
      Wire::IntfId id;
      const Maintenance::MonIntfStatus * record;
      const IntfMaintenanceProfile::Status * profile;
      std::string link, drift;
      std::optional< ReasonFacts > reason;
   };

   const ControlModel & model;
   const ControlCommands & commands;
   Exposition out;
   std::vector< UnitSeen > units;
   std::vector< IntfSeen > interfaces;

   explicit Writer( const Metrics & metrics );

   // Metrics.cpp
   void agent();
   void problems( const std::vector< Problem > & list );
   void turns( const ControlCommands::AgentFacts & facts );
   void hooks( const ControlCommands::AgentFacts & facts );
   void pluginEvents();
   void events( const EventReaders & readers );

   // MetricsOfUnits.cpp
   void allUnits();
   std::optional< double > eta( const UnitSeen & unit ) const;
   void times();
   void progress();
   void traffic();
   void stages();

   // MetricsOfInterfaces.cpp
   void allInterfaces();
   void reasons();
   void profiles();
   void records();
   void links();

   // How samples are written.
   void one( const char * name, Type type, const char * help, double value ) {
      out.metric( name, type, help );
      out.sample( value );
   }
   /// Nothing for a time of 0, which is not known. To the millisecond: what wall time is ahead of the clock is never
   /// worked out twice the same, and a time that stays should not look as if it changed.
   void time( double clockSeconds, Exposition::Labels labels = {} );
   /// Nothing for a value that is not finite.
   void known( double value, Exposition::Labels labels );
   void rates( const char * label, const std::string & name, double inBps, double outBps );
   /// A sample of each unit.
   template < class Value >
   void ofUnits( const char * name, const char * help, Value value, Type type = Type::gauge ) {
      out.metric( name, type, help );
      for ( const UnitSeen & unit : units )
         out.sample( static_cast< double >( value( unit ) ), { { "unit", unit.name } } );
   }
   /// A sample of each interface.
   template < class Value >
   void ofInterfaces( const char * name, const char * help, Value value ) {
      out.metric( name, Type::gauge, help );
      for ( const IntfSeen & intf : interfaces )
         out.sample( static_cast< double >( value( intf ) ), { { "interface", intf.name } } );
   }
   /// What `write` writes of each interface that has what `of` asks for.
   template < class Part, class Write >
   void ofThose( const char * name, Type type, const char * help, Part IntfSeen::*of, Write write ) {
      out.metric( name, type, help );
      for ( const IntfSeen & intf : interfaces )
         if ( intf.*of )
            write( intf );
   }

   static constexpr double bitsPerByte = 8;
};

} // namespace Agent
