#pragma once

#include "Platform/Vel/Entity.h"

#include <vector>

namespace Ledger {

/// Purpose: how some attributes of an entity type lie in a record. First come those of fixed size, as they
/// lie in memory; then the others, each with its length. The form's text, which is stored too, tells names
/// and sizes:
/// "curRates 40,state 4,profileName *".
///
/// Attributes that lie side by side in memory are copied at once: a record is written for every sample of
/// every interface.
class EntityForm {
 public:
   /// Adds an attribute, described by a type. `sample` is any entity of that type: a member lies at the same
   /// distance in all of them.
   void attributeIs( const Vel::AttributeInfo & info, Vel::Entity & sample );
   bool empty() const { return copied_.empty() && written_.empty(); }
   Vel::String text() const;

   /// Appends the attributes of an entity of the type.
   void write( Vel::String & out, const Vel::Entity & entity ) const;

   /// One attribute, as a text tells it.
   struct Field {
      Vel::String name;
      std::size_t size; ///< 0: given with each value
   };
   /// The fields of a form's text; false if it is none.
   static bool fields( std::string_view text, std::vector< Field > & fields );

 private:
   struct Copied {
      std::size_t offset;
      std::size_t size;
   };
   struct Written {
      std::size_t offset;
      const Vel::ValueType * type;
   };

   std::vector< Copied > copied_;
   std::vector< Written > written_;
   std::size_t copiedSize_ = 0;
   Vel::String copiedText_, writtenText_;
};

} // namespace Ledger
