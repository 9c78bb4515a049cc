#pragma once

#include "Agent/Plan/Judgement.h"

#include <algorithm>

/// Purpose: facts for tests of the judgement, put together piece by piece.
namespace Agent {

class FactsRig {
 public:
   FactsRig() {
      facts.session = "192.0.2.1";
      facts.way = { "", true, "192.0.2.1/32", {} };
      facts.unit = "u1";
      facts.state = "normal";
      facts.steering = {};
   }

   void port( const std::string & name, std::optional< double > speed = 1e9, bool up = true ) {
      routes.links.push_back( { name, up, false, {} } );
      if ( speed )
         facts.speeds[name] = *speed;
   }
   void bond( const std::string & name, const std::vector< std::string > & members ) {
      routes.links.push_back( { name, true, true, { members } } );
   }
   /// A link over others, of each list one at least.
   void over( const std::string & name, const std::vector< std::vector< std::string > > & needs ) {
      routes.links.push_back( { name, true, false, needs } );
   }
   /// An interface of the unit.
   PlanInterface & inUnit( const std::string & name, std::optional< double > bps = 0 ) {
      PlanInterface interface;
      interface.name = name;
      interface.kind = "ethernet";
      interface.profile = "fast";
      interface.thresholdBps = 1e5;
      interface.load = load( bps );
      facts.interfaces.push_back( interface );
      return facts.interfaces.back();
   }
   void carries( const std::string & name, std::optional< double > bps ) { facts.loads[name] = load( bps ); }
   /// The most preferred ways first.
   void route( const std::string & destination, const DataPlane::Choices & choices ) {
      routes.classes.push_back( { choices, 1, { destination } } );
   }
   static DataPlane::EqualHops via( const std::vector< std::string > & links ) {
      DataPlane::EqualHops result;
      for ( const std::string & link : links )
         result.push_back( { link } );
      return result;
   }

   /// They can be changed between two judgements.
   std::vector< PlanFinding > judged() const { return judge( whole() ); }
   PlanQuestions questions() const { return questionsOf( whole() ); }
   /// Null if there is none with the code.
   static const PlanFinding * find( const std::vector< PlanFinding > & findings, const std::string & code ) {
      const auto at = std::find_if( findings.begin(), findings.end(), [&]( const PlanFinding & finding ) {
         return finding.code == code;
      } );
      return at == findings.end() ? nullptr : &*at;
   }
   /// "blocking: text" of the one with the code; empty: there is none.
   std::string said( const std::string & code ) const {
      const auto findings = judged();
      const PlanFinding * const finding = find( findings, code );
      return finding ? std::string( stringValue( finding->severity ) ) + ": " + finding->text : "";
   }

   PlanFacts facts; ///< but for the routes
   DataPlane::RouteTable routes;

 private:
   PlanFacts whole() const {
      PlanFacts result = facts;
      result.routes = std::make_shared< const DataPlane::RouteTable >( routes );
      return result;
   }
   static PlanLoad load( std::optional< double > bps ) {
      return bps ? PlanLoad{ PlanRates{ *bps, *bps }, PlanRates{ *bps, *bps } } : PlanLoad();
   }
};

} // namespace Agent
