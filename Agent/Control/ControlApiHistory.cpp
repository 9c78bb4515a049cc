#include "Agent/Control/ControlApi.h"

#include <charconv>
#include <limits>

/// What is asked of records of maintenances.
namespace Agent {

using Api::ErrorCode;

namespace {

/// More than are kept.
constexpr Vel::U32 mostListed = 1000;

/// Decimal digits only, from 1 to `most`.
std::optional< Vel::U32 > positive( const std::string & text, Vel::U32 most ) {
   Vel::U32 value = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, value );
   if ( error != std::errc() || stop != end || value == 0 || value > most )
      return std::nullopt;
   return value;
}

} // namespace

void ControlApi::getHistory( const Call & call ) {
   std::string unit;
   Vel::U32 limit = mostListed;
   for ( const auto & [name, value] : call.request.query ) {
      if ( name != "unit" && name != "limit" )
         throw Api::Error{ ErrorCode::badRequest, "\"" + name + "\" is not known here", name };
      if ( call.request.query.count( name ) > 1 )
         throw Api::Error{ ErrorCode::badRequest, "\"" + name + "\" is given more than once", name };
      if ( name == "unit" )
         unit = value;
      else if ( const auto number = positive( value, mostListed ) )
         limit = *number;
      else
         throw Api::Error{
            ErrorCode::badRequest, "\"limit\" is no number from 1 to " + std::to_string( mostListed ), name };
   }
   const bool all = call.request.query.count( "unit" ) == 0;
   // A unit that is not configured any more may have been in maintenance all the same.
   if (
      !all &&
      ( unit.empty() || ( !model_.unitStatusDir->status( unit ) && !commands_.history.hasUnit( unit ) ) ) )
      throw Api::Error{ ErrorCode::notFound, "there is no unit " + unit, unit };
   call.answer( { 200, commands_.history.list( unit, limit ) } );
}

void ControlApi::getHistoryRecord( const Call & call ) {
   const std::string & name = call.path[1];
   const auto id = positive( name, std::numeric_limits< Vel::U32 >::max() );
   if ( !id )
      throw Api::Error{ ErrorCode::badRequest, "a maintenance has a number, not \"" + name + "\"", name };
   call.answer( { 200, commands_.history.record( *id ) } );
}

} // namespace Agent
