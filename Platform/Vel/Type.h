#pragma once

#include "Platform/Vel/Codec.h"

#include <vector>

/// Has no types of its own: the compiler leaves out the namespaces that a name shares with the function.
namespace VelTypeName {
template < class T >
constexpr const char * text() {
   return __PRETTY_FUNCTION__;
}
} // namespace VelTypeName

/// Purpose: the run-time description of every entity type, for persistence, JSON and `show`, and the registry
/// of types by name. Descriptions are built from the same lines that declare a type, so they cannot differ
/// from it.
namespace Vel {

class Entity;

/// One declared line of an entity type.
struct AttributeInfo {
   enum Kind : U8 { param, attribute, counter, set, map, children, reactors };

   const char * name;
   Kind kind;
   /// Place within its type; a base type's lines come first. Begins at 1.
   unsigned index;
   /// Of the value (param, attribute, counter, map); null otherwise.
   const ValueType * value = nullptr;
   /// Of the key (set, map, children); null otherwise.
   const ValueType * key = nullptr;

   /// param, attribute, counter: the value in place.
   void * ( *raw )( Entity & ) = nullptr;
   /// param, attribute that is a counted pointer to an entity: what it points to. Null for other values.
   const Entity * ( *entity )( Entity & ) = nullptr;

   /// Visits the keys in the collection's order. `item` is null (set), the value (map) or the Entity
   /// (children).
   using Visit = void ( * )( void * context, const void * key, const void * item );
   void ( *each )( Entity &, void * context, Visit visit ) = nullptr;
   U32 ( *size )( const Entity & ) = nullptr;
   /// The item of a key in byte form, as Visit gives it; for a set any non-null pointer. Null: no such key.
   const void * ( *find )( Entity &, ByteReader & key ) = nullptr;
   /// Puts back what a store has kept. Silent: nobody is told, nothing is noted. False: the bytes are not
   /// ours.
   bool ( *restore )( Entity &, ByteReader & key, ByteReader & value ) = nullptr;
   /// Makes the child of a key from its key alone; null if the bytes are not ours.
   Entity * ( *restoreChild )( Entity &, ByteReader & key ) = nullptr;

   bool keyed() const { return kind >= set && kind <= children; }
   /// Whether a store can keep it: pointers, children that need more than their key, and reactors stay
   /// behind.
   bool stored() const {
      return kind != reactors && ( !value || value->stored ) && ( !key || key->stored ) &&
             ( kind != children || restoreChild );
   }
};

/// Description of one entity type.
class TypeInfo {
 public:
   explicit TypeInfo( String typeName ) : name_( std::move( typeName ) ) {}
   /// Qualified by its namespace, as in "Maintenance::MonIntfStatus".
   const String & name() const { return name_; }
   const std::vector< AttributeInfo > & attributes() const { return attributes_; }
   /// Null if there is none of that name.
   const AttributeInfo * attribute( std::string_view name ) const;
   /// Null if there is none of that index.
   const AttributeInfo * attribute( unsigned index ) const;

   /// Called by the declaring macros, in the order of declaration.
   void attributeIs( const AttributeInfo & info ) { attributes_.push_back( info ); }

 private:
   String name_;
   std::vector< AttributeInfo > attributes_;
};

namespace Detail {
String typeNameFrom( std::string_view prettyFunction );
}

/// The qualified name of a type.
template < class T >
const String & typeName() {
   static const String name = Detail::typeNameFrom( VelTypeName::text< T >() );
   return name;
}

/// The types that can be made by name, in the order in which they were registered. A plug-in's types leave
/// with it.
class TypeRegistry {
 public:
   /// Makes an entity with this name. The result is the one reference to it.
   using Factory = Ptr< Entity > ( * )( const String & name );
   struct Entry {
      String typeName;
      Factory factory; ///< null: known, but not to be made by name
   };

   static TypeRegistry & instance();

   /// Throws NameInUse if the name is taken.
   void typeIs( const String & typeName, Factory factory );
   void typeDel( const String & typeName );
   bool type( const String & typeName ) const;
   /// Throws InternalException for a type that is unknown or cannot be made by name.
   Ptr< Entity > entityNew( const String & typeName, const String & name ) const;
   const std::vector< Entry > & types() const { return entries_; }

 private:
   std::vector< Entry > entries_;
};

/// Registers T for as long as it lives. T is made by name if it is constructible from a name or from nothing.
template < class T >
class TypeRegistration {
 public:
   TypeRegistration() : name_( typeName< T >() ) { TypeRegistry::instance().typeIs( name_, factory() ); }
   ~TypeRegistration() { TypeRegistry::instance().typeDel( name_ ); }
   TypeRegistration( const TypeRegistration & ) = delete;
   TypeRegistration & operator=( const TypeRegistration & ) = delete;

 private:
   static constexpr TypeRegistry::Factory factory() {
      if constexpr ( std::is_constructible_v< T, String > )
         return []( const String & name ) -> Ptr< Entity > { return make< T >( name ); };
      else if constexpr ( std::is_default_constructible_v< T > )
         return []( const String & ) -> Ptr< Entity > { return make< T >(); };
      else
         return nullptr;
   }

   /// A copy: typeName's own may belong to the executable and be gone before a library's registrations are.
   const String name_;
};

} // namespace Vel
