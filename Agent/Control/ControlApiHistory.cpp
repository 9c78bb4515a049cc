#include "Agent/Control/ControlApi.h"
#include "Agent/Control/Query.h"

#include <limits>
#include <memory>
#include <utility>

/// What is asked of records of maintenances.
namespace Agent {

using Api::ErrorCode;

namespace {

/// More than are kept.
constexpr Vel::U32 mostListed = 1000;

/// Bytes and pieces of a record that are answered at once. What is longer is a reply that goes on.
constexpr std::size_t mostAtOnce = 32 * 1024, mostPiecesAtOnce = 16;

/// Bytes that a piece counts for at least: that of an open record is short, and takes the file of an interface to make.
constexpr std::size_t effortOfPiece = 4 * 1024;

/// A text that is made as its reader takes it.
class PiecesStream final : public HttpStream {
 public:
   PiecesStream( std::string first, ControlCommands::History::Pieces pieces )
      : first_( std::move( first ) ), pieces_( std::move( pieces ) ) {}
   Piece next() override try {
      auto text = std::make_shared< std::string >( first_.empty() ? pieces_() : std::exchange( first_, "" ) );
      const bool last = text->empty();
      return { std::move( text ), last, false, effortOfPiece };
   } catch ( const Api::Error & ) {
      // The status is sent already.
      return { nullptr, true, true };
   }
   bool ends() const override { return true; }
   /// There is always more until the end.
   std::string heartbeat() const override { return ""; }

 private:
   std::string first_;
   ControlCommands::History::Pieces pieces_;
};

} // namespace

void ControlApi::getHistory( const Call & call ) {
   std::string unit;
   Vel::U32 limit = mostListed;
   for ( const auto & [name, value] : call.request.query ) {
      if ( name == "unit" )
         unit = value;
      else if ( const auto number = positiveNumber( value, mostListed ) )
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
   const auto id = positiveNumber( name, std::numeric_limits< Vel::U32 >::max() );
   if ( !id )
      throw Api::Error{ ErrorCode::badRequest, "a maintenance has a number, not \"" + name + "\"", name };
   ControlCommands::History::Pieces pieces = commands_.history.record( *id );
   HttpReply reply;
   for ( std::size_t i = 0; i < mostPiecesAtOnce && reply.body.size() < mostAtOnce; ++i ) {
      const std::string piece = pieces();
      if ( piece.empty() )
         return call.answer( std::move( reply ) );
      reply.body += piece;
      reply.effort += effortOfPiece;
   }
   reply.stream = std::make_shared< PiecesStream >( std::exchange( reply.body, "" ), std::move( pieces ) );
   call.answer( std::move( reply ) );
}

} // namespace Agent
