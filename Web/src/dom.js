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

/** What the keyboard can stand on. */
const stops = 'a[href], button, summary, [tabindex]';
const firstStop = ( element ) => ( element?.matches( stops ) ? element : element?.querySelector( stops ) );

/**
 * Changes what is within an element. If what the keyboard stands on goes and nobody has said where to, it stands on what
 * leads to the same address, or on the element itself.
 */
export function keepingFocus( element, change ) {
   const before = document.activeElement;
   const within = before !== element && element.contains( before );
   change();
   const now = document.activeElement;
   if ( !within || ( now !== document.body && !now.closest( '[hidden]' ) ) )
      return;
   const same = [ ...element.querySelectorAll( 'a[href]' ) ].find( ( link ) => link.getAttribute( 'href' ) === before.getAttribute( 'href' )
      && !link.closest( '[hidden]' ) );
   ( same ?? element ).focus( { preventScroll: true } );
}

/**
 * A list whose rows stay the same elements while their items stay, so that focus, curves and open details survive: a row
 * with the focus is never moved, the others go around it. If it goes, the focus is on the row that has come to its place, or
 * the next one that can have it.
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
      const { parent, rows } = this;
      const keys = items.map( this.key );
      const place = this.removeBut( new Set( keys ) );
      let before = parent.firstChild;
      items.forEach( ( item, i ) => {
         let row = rows.get( keys[ i ] );
         if ( !row ) {
            row = this.make( item );
            rows.set( keys[ i ], row );
         }
         row.update( item );
         const { element } = row;
         if ( element !== before && element.contains( document.activeElement ) )
            for ( ; before !== element; before = this.toEnd( before ) );
         if ( element === before )
            before = before.nextSibling;
         else
            parent.insertBefore( element, before );
      } );
      if ( place !== null ) {
         const all = [ ...parent.children ];
         [ ...all.slice( place ), ...all.slice( 0, place ).reverse() ].map( firstStop ).find( Boolean )?.focus( { preventScroll: true } );
      }
   }
   /** Where the row was that has gone with the focus; null: it is not among them. */
   removeBut( kept ) {
      let place = null;
      for ( const [ key, row ] of this.rows ) {
         if ( kept.has( key ) )
            continue;
         if ( row.element.contains( document.activeElement ) )
            place = [ ...this.parent.children ].indexOf( row.element );
         row.remove?.();
         row.element.remove();
         this.rows.delete( key );
      }
      return place;
   }
   /** What comes after it. */
   toEnd( element ) {
      const after = element.nextSibling;
      this.parent.append( element );
      return after;
   }
   remove() {
      this.update( [] );
   }
}
