#include "Agent/Operations/Operations.h"

#include "Api/Utf8.h"

#include <utility>

namespace Agent {

using Maintenance::Unit::UnitState;

namespace {

/// A request is its kind, its unit and what else it asks for.
Vel::U64 fingerprintOf( const Operations::Request & request ) {
   Vel::U64 hash = request.fingerprint;
   for ( const char c : stringValue( request.kind ) + " " + request.unitName ) {
      hash ^= static_cast< unsigned char >( c );
      hash *= 0x100000001b3; // FNV-1a goes on
   }
   return hash;
}

} // namespace

Operations::Operations( Model model, std::function< double() > wallTime, Vel::U32 mostKept )
   : model_( std::move( model ) ), wallTime_( std::move( wallTime ) ), mostKept_( mostKept ) {
   for ( const auto & [id, operation] : model_.operationDir->operationRange() )
      if ( operation->state() == OperationState::running )
         running_.insert( id );
   for ( const auto & [key, use] : model_.operationDir->keyUseRange() )
      keys_.emplace( use.order, key );
}

Vel::U32 Operations::operationOf( const Vel::String & unitName ) const {
   const UnitRun * const run = model_.unitRunDir->unitRun( unitName );
   return run ? run->operation() : 0;
}

// ---- what is asked for

std::optional< Operations::Answer > Operations::repeated( const Request & request ) const {
   const KeyUse * const use = request.key.empty() ? nullptr : model_.operationDir->keyUse( request.key );
   if ( !use )
      return std::nullopt;
   if ( use->fingerprint == fingerprintOf( request ) )
      return Answer{ std::nullopt, use->operation, false, true };
   const Vel::String by = use->operation ? Vel::text( ", that of operation ", use->operation ) : "";
   return Answer{
      Api::Error{
         Api::ErrorCode::conflict, "the request key " + request.key + " was used for another request" + by,
         request.key },
      use->operation };
}

Operations::Answer Operations::ask( const Request & request, const Carry & carry ) {
   if ( auto before = repeated( request ) )
      return *before;
   // What has come to its end by itself is not ended by what comes now; a reload may take any unit away.
   const bool ofUnit = isOfUnit( request.kind );
   const Vel::U32 before = ofUnit ? operationOf( request.unitName ) : 0;
   Operation * const present = model_.operationDir->operation( before );
   if ( !ofUnit )
      look();
   else if ( present )
      lookAt( *present );
   const Vel::U32 id = model_.operationDir->lastId() + 1;
   Carried carried = carry( id );
   if ( carried.refused ) {
      const bool inTheWay = present && present->state() == OperationState::running &&
                            carried.refused->code == Api::ErrorCode::conflict;
      return { std::move( carried.refused ), inTheWay ? before : 0 };
   }
   const bool begins = ofUnit && operationOf( request.unitName ) == id, changed = begins || carried.changed;
   if ( changed ) {
      begin( request, id );
      if ( !begins )
         end( *model_.operationDir->operation( id ), OperationState::done, 0, carried.text );
      else if ( present && present->state() == OperationState::running ) {
         const bool failed = !request.failure.empty();
         end(
            *present, failed ? OperationState::failed : OperationState::cancelled, id,
            failed ? request.failure : Vel::text( "cancelled by operation ", id, ", for ", request.by ) );
      }
   }
   remember( request, changed ? id : before );
   forgetOld();
   return { std::nullopt, changed ? id : before, changed };
}

void Operations::begin( const Request & request, Vel::U32 id ) {
   OperationDir & dir = *model_.operationDir;
   dir.lastIdIs( id );
   Operation & operation = *dir.operationIs( id, request.unitName );
   operation.kindIs( request.kind );
   operation.byIs( request.by );
   operation.reasonIs( Vel::String( Api::beginning( request.reason, Operation::longestReason ) ) );
   operation.withIs( request.with );
   operation.requestKeyIs( request.key );
   operation.begunIs( wallTime_() );
   running_.insert( id );
}

void Operations::remember( const Request & request, Vel::U32 operation ) {
   if ( request.key.empty() )
      return;
   const Vel::U64 order = keys_.empty() ? 1 : keys_.rbegin()->first + 1;
   model_.operationDir->keyUseIs( request.key, { operation, fingerprintOf( request ), order } );
   keys_.emplace( order, request.key );
}

void Operations::forgetOld() {
   OperationDir & dir = *model_.operationDir;
   while ( keys_.size() > mostKept_ ) {
      dir.keyUseDel( keys_.begin()->second );
      keys_.erase( keys_.begin() );
   }
   while ( dir.operations() > mostKept_ + running_.size() ) {
      auto running = running_.begin();
      Vel::U32 oldest = 0;
      for ( const auto & [id, operation] : dir.operationRange() )
         if ( running != running_.end() && *running == id )
            ++running;
         else {
            oldest = id;
            break;
         }
      dir.operationDel( oldest );
   }
}

// ---- what becomes of it

void Operations::look() {
   for ( auto next = running_.begin(); next != running_.end(); ) {
      const Vel::U32 id = *next++; // lookAt() may take it out
      lookAt( *model_.operationDir->operation( id ) );
   }
   forgetOld();
}

void Operations::lookAt( Operation & operation ) {
   if ( operation.state() != OperationState::running )
      return;
   const Vel::String & unit = operation.unitName();
   const auto * const status = model_.unitStatusDir->status( unit );
   if ( !status || operationOf( unit ) != operation.id() )
      return end( operation, OperationState::failed, 0, unit + " is not configured any more" );
   const bool enter = operation.kind() == OperationKind::enter;
   if ( status->state() == ( enter ? UnitState::maintenance : UnitState::normal ) )
      end( operation, OperationState::done, 0, unit + ( enter ? " is under maintenance" : " is normal" ) );
}

void Operations::end( Operation & operation, OperationState state, Vel::U32 by, const Vel::String & text ) {
   operation.endedIs( wallTime_() );
   operation.endedByIs( by );
   operation.textIs( text );
   operation.stateIs( state );
   running_.erase( operation.id() );
}

} // namespace Agent
