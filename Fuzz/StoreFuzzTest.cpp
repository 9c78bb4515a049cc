// Records of the two stores, as an earlier agent or a damaged disk has left them: the agent says which store it cannot
// take, and what is wrong with it, and writes nothing to it; or takes it, and the next agent takes what this one writes.

#include "Apps/MaintdEntities.h"
#include "Fuzz/Input.h"
#include "Fuzz/Mutation.h"
#include "Platform/Ledger/EntityForm.h"
#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/Persistence.h"
#include "Platform/Ledger/Records.h"

namespace {

using Fuzz::require;
using Ledger::MemoryDisk;

/// One agent's start.
struct Process {
   Process( MemoryDisk & stateDisk, MemoryDisk & runtimeDisk )
      : state( "state store", stateDisk ), runtime( "runtime store", runtimeDisk ) {}

   std::deque< std::function< void() > > posted;
   Ledger::MemoryEngine state, runtime;
   Vel::Ptr< Ledger::EntityManager > entityManager = Vel::make< Ledger::EntityManager >(
      [this]( std::function< void() > call ) { posted.push_back( std::move( call ) ); } );
   Ledger::Persistence persistence{
      entityManager, state, runtime, Apps::Maintd::Entities::kept(), Apps::Maintd::Entities::leftOut() };
};

/// Some of all that an agent keeps, with one unit under way.
void begin( const Apps::Maintd::Entities & entities ) {
   const Wire::EthIntfId et1( "et1" );
   auto & run = *entities.unitRunDir->unitRunIs( "u1" );
   run.byIs( "ann" );
   run.stageStartIs( "steer", 1.7e9 );
   auto & times = *entities.unitTimesDir->unitIs( "u1" );
   times.deadlineIs( 1.7e9 );
   times.revertAtIs( 1.8e9 );
   entities.operationDir->lastIdIs( 7 );
   auto & operation = *entities.operationDir->operationIs( 7, "u1" );
   operation.withIs( "ticket=OPS-1\n" );
   operation.endedByIs( 8 );
   entities.operationDir->keyUseIs( "job-17", { 7, 12345, 1 } );
   auto & hook = *entities.hookDir->hookIs( "page" );
   hook.doneIs( 3 );
   hook.runningIs( 4 );
   hook.markIs( "3f1d" );
   entities.historyDir->lastIdIs( 1 );
   auto & record = *entities.historyDir->recordIs( 1, "u1" );
   record.stageIs( "enter/steer" )->beganIs( 1.7e9 );
   record.intfIs( et1 )->reasonIs( 1.7e9, Agent::HistoryReason() );
   record.withIs( "ticket=OPS-1\n" );
   entities.journal->bootIdIs( "boot 1" );
   entities.journal->entryIs( et1 )->snapshotIs( "addresses" );
   entities.unitStatusDir->statusIs( "u1" )->stateIs( Maintenance::Unit::UnitState::enterInProgress );
   entities.cause->intfStatusIs( et1, 1.7e9 );
}

struct Disks {
   MemoryDisk state, runtime;
};

Disks disksOfAnAgent() {
   Disks disks;
   Process agent( disks.state, disks.runtime );
   require( agent.persistence.start().ok(), "an agent starts" );
   begin( Apps::Maintd::Entities( *agent.entityManager ) );
   require( agent.persistence.commit().ok(), "and commits" );
   return disks;
}

/// What is done to the records. Records as they are changed at random hardly ever get further than to their first check, so
/// those of an agent are there to be changed, too.
enum class Step : unsigned { state, runtime, changeState, changeRuntime, cutState, cutRuntime, agent };

/// One byte of a record, or all from there on. Takes as many bytes either way, so that what follows stays what it is.
void change( Fuzz::Input & input, MemoryDisk & disk, bool cut ) {
   const std::size_t number = input.byte(), place = input.byte();
   const std::uint8_t byte = input.byte();
   if ( disk.records.empty() )
      return;
   const auto steps = static_cast< std::ptrdiff_t >( number % disk.records.size() );
   Vel::String & value = std::next( disk.records.begin(), steps )->second;
   if ( cut )
      value.resize( place % ( value.size() + 1 ) );
   else if ( !value.empty() )
      value[place % value.size()] = static_cast< char >( byte );
}

void fill( Fuzz::Input input, MemoryDisk & state, MemoryDisk & runtime ) {
   static const Disks agent = disksOfAnAgent();
   while ( !input.empty() ) {
      const auto step = static_cast< Step >( input.byte() % 7 );
      MemoryDisk & disk = static_cast< unsigned >( step ) % 2 ? runtime : state;
      switch ( step ) {
      case Step::state:
      case Step::runtime: {
         const std::string_view key = input.bytes( input.byte() );
         const std::string_view value = input.sized();
         if ( !key.empty() )
            disk.records[Vel::String( key )] = value;
         break;
      }
      case Step::changeState:
      case Step::changeRuntime:
         change( input, disk, false );
         break;
      case Step::cutState:
      case Step::cutRuntime:
         change( input, disk, true );
         break;
      case Step::agent:
         state = agent.state;
         runtime = agent.runtime;
         break;
      }
   }
}

// ---- how records change

struct Attribute {
   std::size_t place, size; ///< in the value of a record
};
struct Record {
   bool isRuntime;
   std::string key, value;
   std::vector< Attribute > attributes;
};

template < class Number >
Number numberAt( std::string_view bytes, std::size_t place ) {
   Number number = 0;
   if ( place + sizeof number <= bytes.size() )
      std::memcpy( &number, bytes.data() + place, sizeof number );
   return number;
}

/// What lies where in the record of an entity: behind its place, if that is there, the number of a text that says it.
std::vector< Attribute >
attributesOf( std::string_view key, std::string_view value, const MemoryDisk & disk ) {
   constexpr std::size_t parentAttributeAndType = 8 + 2 + 2, size = 4;
   std::size_t at = 0;
   if ( key[0] == 'P' )
      at = parentAttributeAndType + size + numberAt< std::uint32_t >( value, parentAttributeAndType );
   else if ( key[0] != 'V' )
      return {};
   const auto text =
      disk.records.find( Vel::String( Ledger::RecordKey::text( numberAt< std::uint16_t >( value, at ) ) ) );
   std::vector< Ledger::EntityForm::Field > fields;
   if ( text == disk.records.end() || !Ledger::EntityForm::fields( text->second, fields ) )
      return {};
   at += sizeof( std::uint16_t );
   std::vector< Attribute > attributes;
   for ( const auto & field : fields ) {
      const std::size_t all = field.size ? field.size : size + numberAt< std::uint32_t >( value, at );
      if ( all > value.size() || at > value.size() - all )
         break;
      attributes.push_back( { at, all } );
      at += all;
   }
   return attributes;
}

std::string stepOf( const Record & record ) {
   std::string step( 1, static_cast< char >( record.isRuntime ? Step::runtime : Step::state ) );
   step.append( 1, static_cast< char >( record.key.size() ) ).append( record.key );
   const auto size = static_cast< std::uint16_t >( record.value.size() );
   step.append( reinterpret_cast< const char * >( &size ), sizeof size ).append( record.value );
   return step;
}

/// One of those that an input has in the end: of a random kind first, for most of them are texts and events.
std::optional< Record > oneOf( std::string_view input, Fuzz::Dice & dice ) {
   Disks disks;
   fill(
      Fuzz::Input( reinterpret_cast< const std::uint8_t * >( input.data() ), input.size() ), disks.state,
      disks.runtime );
   const char kind = dice.oneOf( std::string_view( "PPVVVKKKNLDH" ) );
   const bool isRuntime = dice.oneIn( 4 );
   std::vector< Record > records;
   const MemoryDisk & disk = isRuntime ? disks.runtime : disks.state;
   for ( const auto & [key, value] : disk.records )
      if ( key[0] == kind && key.size() <= 255 && value.size() <= 65535 )
         records.push_back( { isRuntime, key, value, {} } );
   if ( records.empty() )
      return std::nullopt;
   Record record = dice.oneOf( records );
   record.attributes = attributesOf( record.key, record.value, disk );
   return record;
}

/// A text in a value has its size before it, and before that the size of both.
void changeSizedText( std::string & value, Fuzz::Dice & dice ) {
   const auto sizeAt = [&]( std::size_t place ) { return numberAt< std::uint32_t >( value, place ); };
   std::vector< std::size_t > places;
   for ( std::size_t at = 0; at + 8 <= value.size(); ++at )
      if (
         sizeAt( at ) >= 4 && sizeAt( at ) <= value.size() - at - 4 && sizeAt( at + 4 ) == sizeAt( at ) - 4 )
         places.push_back( at );
   if ( places.empty() )
      return;
   const std::size_t place = dice.oneOf( places );
   const std::size_t before = sizeAt( place + 4 );
   std::string text = value.substr( place + 8, before );
   Fuzz::changeWord( text, dice );
   const auto size = static_cast< std::uint32_t >( text.size() ), both = size + 4;
   value.replace( place + 8, before, text );
   std::memcpy( value.data() + place, &both, sizeof both );
   std::memcpy( value.data() + place + 4, &size, sizeof size );
}

void changeAnywhere( Record & record, Fuzz::Dice & dice ) {
   switch ( dice.below( 6 ) ) {
   case 0: {
      // Of another entity, or of one that is not there.
      std::string number = record.key.substr( 1 );
      Fuzz::changeNumber( number, dice );
      record.key.replace( 1, record.key.npos, number );
      return;
   }
   case 1:
      return Fuzz::changeAnything( record.value, record.value.size() + 8 );
   case 2:
   case 3:
      return changeSizedText( record.value, dice );
   default:
      return Fuzz::changeNumber( record.value, dice );
   }
}

/// Takes the place of what was there, or is added.
void changeRecord( std::string & input, Fuzz::Dice & dice ) {
   std::optional< Record > record = oneOf( input, dice );
   if ( !record )
      return;
   const std::string before = stepOf( *record );
   if ( !record->attributes.empty() && !dice.oneIn( 4 ) ) {
      const Attribute & attribute = dice.oneOf( record->attributes );
      std::string bytes = record->value.substr( attribute.place, attribute.size );
      const std::string same = bytes;
      changeSizedText( bytes, dice );
      if ( bytes == same )
         Fuzz::changeNumber( bytes, dice );
      record->value.replace( attribute.place, attribute.size, bytes );
   } else
      changeAnywhere( *record, dice );
   const std::string after = dice.oneIn( 16 ) ? "" : stepOf( *record );
   const std::size_t at = input.find( before );
   if ( at == input.npos )
      input += after;
   else
      input.replace( at, before.size(), after );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   MemoryDisk state, runtime;
   fill( Fuzz::Input( data, size ), state, runtime );
   const MemoryDisk stateBefore = state, runtimeBefore = runtime;
   {
      Process first( state, runtime );
      const Ledger::Status started = first.persistence.start();
      if ( !started.ok() ) {
         const Vel::String & text = started.text();
         require(
            text.starts_with( "state store" ) || text.starts_with( "runtime store" ), "names the store",
            text );
         require(
            state.records == stateBefore.records && runtime.records == runtimeBefore.records,
            "nothing is written to what cannot be taken", text );
         return 0;
      }
      const Apps::Maintd::Entities entities( *first.entityManager );
      entities.latestTime();
      entities.isAnyUnderWay();
      // Some is changed, some goes, some comes.
      first.persistence.documentIs( "note", "taken" );
      entities.historyDir->lastIdIs( entities.historyDir->lastId() / 2 + 1 );
      entities.unitRunDir->unitRunIs( "new" )->reasonIs( "fresh" );
      entities.unitRunDir->unitRunDel( "u1" );
      const Ledger::Status committed = first.persistence.commit();
      require( committed.ok(), "is committed", committed.text() );
   }
   Process second( state, runtime );
   const Ledger::Status again = second.persistence.start();
   require( again.ok(), "what was written is taken again", again.text() );
   const Vel::String * const note = second.persistence.document( "note" );
   require( note && *note == "taken", "with what was written last" );
   return 0;
}

extern "C" std::size_t
LLVMFuzzerCustomMutator( std::uint8_t * data, std::size_t size, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed( data, size, data, most, [&]( std::string & input ) {
      if ( dice.oneIn( 8 ) )
         return Fuzz::changeAnything( input, most );
      for ( std::size_t changes = 1 + dice.below( 3 ); changes > 0; --changes )
         changeRecord( input, dice );
   } );
}
