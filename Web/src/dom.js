// Building and changing the page. Whatever comes from the agent gets into it as text only: nothing here parses HTML.

const svgNames = new Set( [ 'svg', 'path', 'circle', 'rect' ] );

/**
 * An element: `h( 'a', { class: 'x', href: '#/' }, 'text', child )`. A property that begins with "on" is a handler;
 * false, null and undefined leave a property or a child out.
 */
export function h( name, properties, ...children ) {
   const element = svgNames.has( name ) ? document.createElementNS( 'http://www.w3.org/2000/svg', name )
                                        : document.createElement( name );
   for ( const [ key, value ] of Object.entries( properties ?? {} ) ) {
      if ( key.startsWith( 'on' ) )
         element.addEventListener( key.slice( 2 ), value );
      else
         attribute( element, key, value );
   }
   element.append( ...children.flat().filter( ( child ) => child !== null && child !== undefined && child !== false ) );
   return element;
}

/** Sets an attribute if it is another; false, null and undefined remove it. */
export function attribute( element, key, value ) {
   if ( value === false || value === null || value === undefined ) {
      if ( element.hasAttribute( key ) )
         element.removeAttribute( key );
      return;
   }
   const text = value === true ? '' : String( value );
   if ( element.getAttribute( key ) !== text )
      element.setAttribute( key, text );
}

/** Sets the text of an element if it is another; what has not changed costs nothing and is not read out again. */
export function text( element, value ) {
   const now = value === null || value === undefined ? '' : String( value );
   if ( element.textContent !== now )
      element.textContent = now;
   return element;
}

export function shown( element, visible ) {
   if ( element.hidden === visible )
      element.hidden = !visible;
   return element;
}

/**
 * A list whose rows stay the same elements while their items stay, so that focus, curves and open details survive.
 * `make( item )` gives { element, update( item ), remove?() }.
 */
export class Rows {
   constructor( parent, key, make ) {
      this.parent = parent;
      this.key = key;
      this.make = make;
      this.rows = new Map();
   }
   update( items ) {
      const left = new Map( this.rows );
      let before = this.parent.firstChild;
      for ( const item of items ) {
         const key = this.key( item );
         let row = this.rows.get( key );
         if ( !row ) {
            row = this.make( item );
            this.rows.set( key, row );
         }
         left.delete( key );
         row.update( item );
         if ( row.element === before )
            before = before.nextSibling;
         else
            this.parent.insertBefore( row.element, before );
      }
      for ( const [ key, row ] of left ) {
         row.remove?.();
         row.element.remove();
         this.rows.delete( key );
      }
   }
   remove() { this.update( [] ); }
}
