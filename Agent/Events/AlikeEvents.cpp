#include "Agent/Events/AlikeEvents.h"

#include <nlohmann/json.hpp>

#include <map>
#include <utility>
#include <vector>

namespace Agent {

using nlohmann::json;

namespace {

const char * const changesName = "changes";

/// What is the same in all events that are alike.
std::string keyOf( const EventWriter::About & about, const json & numbers ) {
   json key{ stringValue( about.type ), about.what };
   for ( const auto & [name, value] : numbers.items() )
      if ( !value.is_number() )
         key.push_back( { name, value } );
   return key.dump( -1, ' ', false, json::error_handler_t::replace );
}

} // namespace

/// Events that are alike.
struct AlikeEvents::Kind {
   EventWriter::About about; ///< of the first; the units of all
   json numbers;             ///< null where they are not the same in all
   std::vector< std::string > names = {};
   std::size_t count = 0;
   Vel::U64 changes = 0;
   bool told = false;

   void add( const EventWriter::About & other, const json & otherNumbers ) {
      ++count;
      about.units.insert( other.units.begin(), other.units.end() );
      if ( names.size() < mostNames )
         names.push_back( other.subject );
      changes += otherNumbers.value( changesName, Vel::U64( 0 ) );
      for ( auto & [name, value] : numbers.items() )
         if ( value != otherNumbers.value( name, json() ) )
            value = nullptr;
   }
   void tell( EventWriter & writer ) const {
      EventWriter::About all = about;
      all.subject.clear();
      all.text += "; likewise " + std::to_string( count - 1 ) + " more interfaces";
      json allNumbers = numbers;
      allNumbers["count"] = count;
      allNumbers["interfaces"] = names;
      if ( changes > 0 )
         allNumbers[changesName] = changes;
      writer.write( all, allNumbers );
   }
};

struct AlikeEvents::Collected {
   struct One {
      EventWriter::About about;
      json numbers;
      Kind * kind;
   };
   std::vector< One > events;
   std::map< std::string, Kind > kinds;
};

AlikeEvents::AlikeEvents( EventWriter & writer )
   : writer_( writer ), collected_( std::make_unique< Collected >() ) {}

AlikeEvents::~AlikeEvents() = default;

void AlikeEvents::write( const EventWriter::About & about ) { write( about, json::object() ); }

void AlikeEvents::write( const EventWriter::About & about, const json & numbers ) {
   if ( writer_.silent() )
      return;
   const auto [at, isNew] = collected_->kinds.try_emplace( keyOf( about, numbers ) );
   Kind & kind = at->second;
   if ( isNew )
      kind = { about, numbers };
   kind.add( about, numbers );
   collected_->events.push_back( { about, numbers, &kind } );
}

void AlikeEvents::tell() {
   for ( const Collected::One & event : collected_->events ) {
      if ( event.kind->count <= most )
         writer_.write( event.about, event.numbers );
      else if ( !std::exchange( event.kind->told, true ) )
         event.kind->tell( writer_ );
   }
   *collected_ = {};
}

} // namespace Agent
