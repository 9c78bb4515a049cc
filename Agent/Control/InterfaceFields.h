#pragma once

#include <cstdint>
#include <string>

/// Purpose: which fields of interfaces an answer has: whoever asks for thousands needs few of them. Used by the answers
/// of the control API only.
namespace Agent {

/// All of them unless some are asked for; the name in any case.
class InterfaceFields {
 public:
   InterfaceFields() = default;
   /// \param list  names of fields, separated by commas; `reason.text` and the like for some of the reason only
   /// Throws Api::Error (bad request) if there is no such field, or the list is empty.
   explicit InterfaceFields( const std::string & list );

   /// \param index  in the order of their names, of an interface or of a reason
   bool has( std::size_t index ) const { return ofInterface_ >> index & 1; }
   bool reasonHas( std::size_t index ) const { return ofReason_ >> index & 1; }

 private:
   void take( const std::string & name );

   std::uint32_t ofInterface_ = ~std::uint32_t( 0 ), ofReason_ = ~std::uint32_t( 0 );
};

} // namespace Agent
