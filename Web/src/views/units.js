// All units at a glance: those under way in full, the others a line each, and what has happened last.

import { attribute, h, Rows, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Aggregate, Badge, Deadline, EventTable, Matrix, nextShutdown, Progress, Rates, Times, unitLink,
   Who } from '../parts.js';
import { unitStanding } from '../standing.js';

/** Units that are looked at closely; more of them at once are lines. */
const mostCards = 12;

/** Those under way, first those that somebody should look at. */
const ranks = { alarm: 0, warn: 1 };
const rank = ( unit ) => ranks[ unitStanding( unit ).level ] ?? 2;
const underWay = ( units ) => units.filter( ( unit ) => unit.state !== 'normal' ).sort( ( a, b ) => rank( a ) - rank( b ) );

class Card {
   constructor( model, unit ) {
      this.model = model;
      const { name } = unit;
      this.badge = new Badge();
      this.stage = h( 'span', { class: 'stage' } );
      this.progress = new Progress();
      this.sentence = h( 'p', { class: 'sentence' } );
      this.who = new Who();
      this.times = new Times();
      this.rates = new Rates();
      this.deadline = new Deadline();
      this.aggregate = new Aggregate( model, name, false );
      this.matrix = new Matrix();
      this.element = h( 'article', { class: 'card' },
         h( 'div', { class: 'about' },
            h( 'header', {}, h( 'h3', {}, h( 'a', { href: unitLink( name ) }, name ) ), this.badge.element, this.stage ),
            this.progress.element, this.sentence, this.who.element, this.times.element, this.deadline.element ),
         h( 'div', { class: 'seen' }, this.aggregate.element, this.rates.element ), this.matrix.element );
   }
   update( unit ) {
      const { model } = this;
      const interfaces = model.interfacesOf( unit.name );
      this.badge.update( unitStanding( unit ) );
      text( this.stage, unit.stage ? `stage ${unit.stage}` : '' );
      this.progress.update( unit );
      text( this.sentence, unit.sentence ?? '' );
      this.who.update( unit, model.now() );
      this.times.update( unit, model.now() );
      this.rates.update( ...this.aggregate.rates( unit ) );
      this.deadline.update( nextShutdown( interfaces ), model.now(), true );
      this.aggregate.update();
      shown( this.matrix.element, interfaces.length > 0 );
      this.matrix.update( interfaces.slice( 0, 400 ) );
      const standing = unitStanding( unit );
      attribute( this.element, 'class', `card ${standing.level}` );
   }
   remove() { this.aggregate.remove(); }
}

/** What a line says of a unit besides its name and state: the name of a column, its class, and its text. */
const sentence = [ 'How it stands', 'sentence', ( unit ) => unit.sentence ?? '' ];
const since = [ 'Since (UTC)', 'wide', ( unit ) => ( unit.since ? format.day( format.seconds( unit.since ) ) : '' ) ];
const columns = {
   busy: [ [ 'Drained', 'count', ( { interfaces } ) => `${interfaces.drained} of ${interfaces.total}` ], sentence,
      [ 'By', 'wide', ( unit ) => unit.by ?? '' ], [ 'Why', 'wide', ( unit ) => unit.reason ?? '' ], since ],
   normal: [ sentence, [ 'Groups', 'wide', ( unit ) => unit.groups.join( ', ' ) ], since ],
};

/** Units, a line each. */
class Lines {
   constructor( caption, cells ) {
      this.caption = h( 'caption', {}, caption );
      this.body = h( 'tbody' );
      this.element = h( 'table', { class: 'units' }, this.caption,
         h( 'thead', {}, h( 'tr', {}, [ [ 'Unit' ], [ 'State' ], ...cells ].map( ( [ name, kind ] ) =>
            h( 'th', { scope: 'col', class: kind === 'wide' ? kind : null }, name ) ) ) ),
         this.body );
      this.rows = new Rows( this.body, ( unit ) => unit.name, ( { name } ) => {
         const badge = new Badge();
         const all = cells.map( ( [ , kind ] ) => h( 'td', { class: kind } ) );
         return {
            element: h( 'tr', {}, h( 'th', { scope: 'row' }, h( 'a', { href: unitLink( name ) }, name ) ),
               h( 'td', {}, badge.element ), all ),
            update( unit ) {
               badge.update( unitStanding( unit ) );
               cells.forEach( ( [ , , words ], i ) => text( all[ i ], words( unit ) ) );
            },
         };
      } );
   }
   update( units ) {
      shown( this.element, units.length > 0 );
      this.rows.update( units );
   }
}

export class UnitsView {
   constructor( model ) {
      this.model = model;
      this.title = 'Units';
      this.total = h( 'p', { class: 'total' } );
      this.cards = h( 'div', { class: 'cards' } );
      this.more = new Lines( '', columns.busy );
      this.normal = new Lines( 'Units that are not under way', columns.normal );
      attribute( this.normal.caption, 'class', 'unseen' );
      this.underWay = h( 'section', { 'aria-labelledby': 'under-way' }, h( 'h2', { id: 'under-way' }, 'Under way' ), this.cards,
         this.more.element );
      this.others = h( 'section', { 'aria-labelledby': 'others' }, h( 'h2', { id: 'others' }, 'Normal' ), this.normal.element );
      this.events = new EventTable( { caption: 'The last events' } );
      this.element = h( 'div', { class: 'view' }, h( 'div', { class: 'head' }, h( 'h1', {}, 'Units' ), this.total ),
         this.underWay, this.others,
         h( 'section', { 'aria-labelledby': 'last' }, h( 'h2', { id: 'last' }, 'Last events' ), this.events.element,
            h( 'p', { class: 'after' }, h( 'a', { href: '#/events' }, 'all events' ) ) ) );
      this.cardRows = new Rows( this.cards, ( unit ) => unit.name, ( unit ) => new Card( model, unit ) );
   }
   update() {
      const { model } = this;
      const units = model.units ?? [];
      const busy = underWay( units );
      const cards = busy.slice( 0, mostCards ), more = busy.slice( mostCards );
      const normal = units.filter( ( unit ) => unit.state === 'normal' );
      this.watch( cards.map( ( unit ) => unit.name ) );
      text( this.total, counted( units ) );
      shown( this.underWay, cards.length > 0 );
      shown( this.others, normal.length > 0 );
      const at = this.element.contains( document.activeElement ) ? document.activeElement.getAttribute( 'href' ) : null;
      this.cardRows.update( cards );
      text( this.more.caption, `and ${more.length} more` );
      this.more.update( more );
      this.normal.update( normal );
      // A unit that is shown elsewhere now takes the focus along.
      if ( at && document.activeElement?.getAttribute( 'href' ) !== at )
         this.element.querySelector( `a[href="${CSS.escape( at )}"]` )?.focus( { preventScroll: true } );
      this.events.update( model.happened.rows( undefined, 10 ), model.now() );
   }
   watch( names ) {
      if ( this.watched !== names.join( ' ' ) ) {
         this.watched = names.join( ' ' );
         this.model.watch( names );
      }
   }
   remove() { this.cardRows.remove(); }
}

/** "2 entering, 1 maintenance, 5 normal" */
function counted( units ) {
   const states = [ 'entering', 'maintenance', 'exiting', 'normal' ];
   const parts = states.map( ( state ) => [ units.filter( ( unit ) => unit.state === state ).length, state ] );
   return parts.filter( ( [ n ] ) => n ).map( ( [ n, state ] ) => `${n} ${state}` ).join( ' · ' );
}
