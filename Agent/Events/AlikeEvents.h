#pragma once

#include "Agent/Events/EventWriter.h"

#include <memory>

/// Purpose: keeps what happens alike to very many interfaces in one turn from pushing everything else out of the log: a
/// unit of thousands of interfaces goes into maintenance in one turn, and who looks later wants to know who has asked
/// for it.
/// Owner: InterfaceEvents.
///
/// Events are collected, and told when the turn ends: each by itself, in their order, or, where more than `most` say the
/// same, as one event in the place of the first. They say the same if type, word and all that is no
/// number are the same.
namespace Agent {

class AlikeEvents {
 public:
   /// So many that say the same are told one by one.
   static constexpr std::size_t most = 200;
   /// So many names stand in an event that tells of more.
   static constexpr std::size_t mostNames = 100;

   explicit AlikeEvents( EventWriter & writer );
   ~AlikeEvents();
   AlikeEvents( const AlikeEvents & ) = delete;
   AlikeEvents & operator=( const AlikeEvents & ) = delete;

   bool silent() const { return writer_.silent(); }
   /// As EventWriter::write().
   void write( const EventWriter::About & about, const nlohmann::json & numbers );
   void write( const EventWriter::About & about );
   /// Tells what has been collected. An event for many has no subject, all their units, the number of them as `count`,
   /// the first names as `interfaces`, null for numbers that are not the same in all, and `changes` summed up.
   void tell();

 private:
   struct Kind;
   struct Collected;

   EventWriter & writer_;
   std::unique_ptr< Collected > collected_;
};

} // namespace Agent
