// All units at a glance: those under way in full, the others a line each, and what has happened last.

import { attribute, h, Rows, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Aggregate, Badge, Deadline, EventTable, Matrix, nextShutdown, Progress, Rates, unitLink, Who } from '../parts.js';
import { unitStanding } from '../standing.js';

/** Units that are looked at closely; more of them at once are lines. */
const mostCards = 12;

class Card {
   constructor( model, unit ) {
      this.model = model;
      const { name } = unit;
      this.badge = new Badge();
      this.stage = h( 'span', { class: 'stage' } );
      this.progress = new Progress();
      this.sentence = h( 'p', { class: 'sentence' } );
      this.who = new Who();
      this.rates = new Rates();
      this.deadline = new Deadline();
      this.aggregate = new Aggregate( model, name, false );
      this.matrix = new Matrix();
      this.element = h( 'article', { class: 'card' },
         h( 'div', { class: 'about' },
            h( 'header', {}, h( 'h3', {}, h( 'a', { href: unitLink( name ) }, name ) ), this.badge.element, this.stage ),
            this.progress.element, this.sentence, this.who.element, this.deadline.element ),
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

class Line {
   constructor( { name } ) {
      this.badge = new Badge();
      this.sentence = h( 'td', { class: 'sentence' } );
      this.groups = h( 'td', { class: 'wide' } );
      this.since = h( 'td', { class: 'wide' } );
      this.element = h( 'tr', {}, h( 'th', { scope: 'row' }, h( 'a', { href: unitLink( name ) }, name ) ),
         h( 'td', {}, this.badge.element ), this.sentence, this.groups, this.since );
   }
   update( unit ) {
      this.badge.update( unitStanding( unit ) );
      text( this.sentence, unit.sentence ?? '' );
      text( this.groups, unit.groups.join( ', ' ) );
      const since = format.seconds( unit.since );
      text( this.since, since === null ? '' : format.day( since ) );
   }
}

export class UnitsView {
   constructor( model ) {
      this.model = model;
      this.title = 'Units';
      this.total = h( 'p', { class: 'total' } );
      this.cards = h( 'div', { class: 'cards' } );
      this.lines = h( 'tbody' );
      this.underWay = h( 'section', { 'aria-labelledby': 'under-way' }, h( 'h2', { id: 'under-way' }, 'Under way' ), this.cards );
      this.others = h( 'section', { 'aria-labelledby': 'others' }, h( 'h2', { id: 'others' }, 'Normal' ),
         h( 'table', { class: 'units' }, h( 'caption', { class: 'unseen' }, 'Units that are not under way' ),
            h( 'thead', {}, h( 'tr', {}, [ 'Unit', 'State' ].map( ( name ) => h( 'th', { scope: 'col' }, name ) ),
               h( 'th', { scope: 'col' }, 'How it stands' ),
               h( 'th', { scope: 'col', class: 'wide' }, 'Groups' ), h( 'th', { scope: 'col', class: 'wide' }, 'Since (UTC)' ) ) ),
                  this.lines ) );
      this.events = new EventTable( { caption: 'The last events' } );
      this.element = h( 'div', { class: 'view' }, h( 'div', { class: 'head' }, h( 'h1', {}, 'Units' ), this.total ),
         this.underWay, this.others,
         h( 'section', { 'aria-labelledby': 'last' }, h( 'h2', { id: 'last' }, 'Last events' ), this.events.element,
            h( 'p', {}, h( 'a', { href: '#/events' }, 'all events' ) ) ) );
      this.cardRows = new Rows( this.cards, ( unit ) => unit.name, ( unit ) => new Card( model, unit ) );
      this.lineRows = new Rows( this.lines, ( unit ) => unit.name, ( unit ) => new Line( unit ) );
   }
   update() {
      const { model } = this;
      const units = model.units ?? [];
      const busy = units.filter( ( unit ) => unit.state !== 'normal' );
      const cards = busy.slice( 0, mostCards );
      const lines = [ ...busy.slice( mostCards ), ...units.filter( ( unit ) => unit.state === 'normal' ) ];
      this.watch( cards.map( ( unit ) => unit.name ) );
      text( this.total, counted( units ) );
      shown( this.underWay, cards.length > 0 );
      shown( this.others, lines.length > 0 );
      const at = this.element.contains( document.activeElement ) ? document.activeElement.getAttribute( 'href' ) : null;
      this.cardRows.update( cards );
      this.lineRows.update( lines );
      // A unit that is shown elsewhere now takes the focus along.
      if ( at && document.activeElement?.getAttribute( 'href' ) !== at )
         this.element.querySelector( `a[href="${CSS.escape( at )}"]` )?.focus( { preventScroll: true } );
      this.events.update( model.happened.rows( undefined, 10 ) );
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
