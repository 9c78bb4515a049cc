// What several views are made of.

import { Curve } from './curve.js';
import { attribute, h, Rows, shown, text } from './dom.js';
import * as format from './format.js';
import { isAlarm, unitMarks } from './marks.js';
import { interfaceStanding, isPending, unitStanding } from './standing.js';
import { recent } from './model.js';

/** What a profile asks for, in words. */
export const profileText = ( profile ) => `${profile.name}: below ${format.rate( profile[ 'threshold-bps' ] )} for ${
   profile[ 'load-interval-seconds' ]} s${profile.shutdown ? ', then shut' : ''}`;

/** Sets a text that is broken between its words only. */
export function broken( element, value ) {
   if ( element.textContent !== value )
      element.replaceChildren( ...value.split( ' ' ).flatMap( ( word, i ) => [ i ? ' ' : '', h( 'span', { class: 'brief' }, word ) ] ) );
   return element;
}

export const unitLink = ( name ) => `#/unit/${encodeURIComponent( name )}`;
export const interfaceLink = ( name ) => `#/interface/${encodeURIComponent( name )}`;
export const recordLink = ( id ) => `#/history/${encodeURIComponent( id )}`;

/** A sign and a word. */
export class Badge {
   constructor() {
      this.sign = h( 'span', { 'class': 'sign', 'aria-hidden': 'true' } );
      this.label = h( 'span' );
      this.element = h( 'span', { class: 'badge' }, this.sign, ' ', this.label );
   }
   update( { sign, label, level } ) {
      text( this.sign, sign );
      text( this.label, label );
      attribute( this.element, 'class', `badge ${level}` );
   }
}

/** How far a unit is: a bar with a piece for each interface while that can be seen, and the count beside it. */
export class Progress {
   constructor() {
      this.fill = h( 'div', { class: 'fill' } );
      this.bar = h( 'div', { class: 'bar', role: 'progressbar', 'aria-valuemin': 0, 'aria-label': 'drained interfaces' }, this.fill );
      this.count = h( 'span', { class: 'count' } );
      this.element = h( 'div', { class: 'progress' }, this.bar, this.count );
   }
   update( unit ) {
      const { total, drained } = unit.interfaces;
      attribute( this.bar, 'aria-valuemax', Math.max( total, 1 ) );
      attribute( this.bar, 'aria-valuenow', drained );
      const eta = unit[ 'eta-seconds' ] ?? null;
      const left = eta === null ? '' : `, about ${format.duration( Math.ceil( eta ) )} left`;
      attribute( this.bar, 'aria-valuetext', `${drained} of ${total} drained${left}` );
      this.fill.style.width = `${total ? ( 100 * drained ) / total : 0}%`;
      this.bar.style.setProperty( '--pieces', total && total <= 48 ? total : 1 );
      text( this.count, `${drained} of ${total}${left}` );
   }
}

/** When a link will be shut, whatever it carries. */
export class Deadline {
   constructor() {
      const sign = h( 'svg', { 'viewBox': '0 0 16 16', 'class': 'icon', 'aria-hidden': 'true' }, h( 'circle', { cx: 8, cy: 8, r: 6.5 } ),
         h( 'path', { d: 'M8 4v4l3 2' } ) );
      this.words = h( 'span' );
      this.element = h( 'p', { class: 'deadline' }, sign, this.words );
   }
   update( next, now, named ) {
      shown( this.element, Boolean( next ) );
      if ( next )
         text( this.words, `forced shutdown${named ? ` of ${next[ 1 ]}` : ''} at ${format.clock( next[ 0 ] )}, in ${
            format.duration( next[ 0 ] - now )}` );
   }
}

/** The times that somebody has set for a unit, in words, with what is left of them. */
function timesOf( { state, overdue, deadline, times }, now ) {
   const at = ( time ) => {
      const left = format.seconds( time ) - now;
      return `${format.moment( left + now, now )}${left > 0 ? `, in ${format.duration( left )}` : ''}`;
   };
   const then = times?.[ 'on-overrun' ] === 'restore' ? 'goes back' : 'goes on';
   const result = [];
   if ( deadline && ( state === 'entering' || state === 'exiting' ) )
      result.push( [ 'timeout', overdue ? `overdue: expected by ${at( deadline )}` : `expected by ${at( deadline )}`, overdue ] );
   if ( times?.deadline && state === 'entering' )
      result.push( [ 'deadline', times.overrun ? `deadline missed: ${at( times.deadline )}; it ${then}`
         : `deadline ${at( times.deadline )}; else it ${then}`, times.overrun ] );
   if ( times?.[ 'revert-at' ] )
      result.push( [ 'revert', `goes back by itself at ${at( times[ 'revert-at' ] )}` ] );
   if ( times?.doubt && result.length )
      result.push( [ 'doubt',
         `wall time was ${times.doubt} when the machine started, so the time for which it was off is not counted` ] );
   return result;
}
export class Times {
   constructor() {
      this.element = h( 'ul', { 'class': 'times', 'aria-label': 'times' } );
      this.rows = new Rows( this.element, ( [ key ] ) => key, () => {
         const element = h( 'li' );
         return {
            element,
            update( [ , words, late ] ) {
               text( element, words );
               attribute( element, 'class', late ? 'late' : null );
            },
         };
      } );
   }
   update( unit, now ) {
      const times = timesOf( unit, now );
      shown( this.element, times.length > 0 );
      this.rows.update( times );
   }
}

/** The two rates of now, with the lines that they are drawn with. */
export class Rates {
   constructor( ...more ) {
      this.in = h( 'span', { class: 'number' } );
      this.out = h( 'span', { class: 'number' } );
      this.element = h( 'p', { class: 'rates' }, keyed( 'in', 'in', this.in ), keyed( 'out', 'out', this.out ), ...more );
   }
   update( inBps, outBps ) {
      text( this.in, format.rate( inBps ) );
      text( this.out, format.rate( outBps ) );
   }
}
const keyed = ( name, words, value ) => h( 'span', {}, h( 'span', { 'class': `key ${name}`, 'aria-hidden': 'true' } ), `${words} `, value );

/** Every interface of a unit at a glance: a cell each, with its sign. */
export class Matrix {
   constructor() {
      this.element = h( 'ul', { class: 'matrix', 'aria-label': 'interfaces' } );
      this.rows = new Rows( this.element, ( intf ) => intf.name, ( intf ) => this.cell( intf ) );
   }
   cell( intf ) {
      const sign = h( 'span', { 'class': 'sign', 'aria-hidden': 'true' } );
      const label = h( 'span', { class: 'unseen' } );
      const link = h( 'a', { href: interfaceLink( intf.name ) }, sign, h( 'span', { class: 'name' }, intf.name ), label );
      return {
         element: h( 'li', {}, link ),
         update: ( now ) => {
            const standing = interfaceStanding( now );
            text( sign, standing.sign );
            text( label, ` ${standing.label}` );
            attribute( link, 'class', `cell ${standing.level}` );
            attribute( link, 'title', `${now.name}: ${now.reason?.text ?? standing.label}` );
         },
      };
   }
   update( interfaces ) { this.rows.update( interfaces ); }
}

/** Who has asked for it and why. */
export class Who {
   constructor() {
      this.why = h( 'q' );
      this.by = h( 'span', { class: 'by' } );
      this.since = h( 'time' );
      this.pairs = h( 'span' );
      this.element = h( 'p', { class: 'who' }, this.why, ' ', this.by, ' ', this.since, ' ', this.pairs );
   }
   update( unit, now ) {
      shown( this.element, Boolean( unit.by || unit.since ) );
      shown( this.why, Boolean( unit.reason ) );
      text( this.why, unit.reason );
      text( this.by, unit.by ? `by ${unit.by}` : '' );
      const since = format.seconds( unit.since );
      attribute( this.since, 'datetime', unit.since );
      text( this.since, since === null ? '' : `since ${format.moment( since, now )} UTC (${format.duration( now - since )})` );
      text( this.pairs, format.pairs( unit.with ) );
   }
}

/** What a unit carries altogether: the sum over its interfaces. */
export class Aggregate {
   constructor( model, unitName, tall ) {
      this.model = model;
      this.unitName = unitName;
      this.curve = new Curve( { name: `sum over the interfaces of ${unitName}`, tall, facts: () => this.facts() } );
      this.element = this.curve.element;
   }
   update() { this.curve.dirtyIs(); }
   remove() { this.curve.remove(); }
   /** In and out where the curve ends; what the agent says of the unit while there is none. */
   rates( unit ) {
      const { ins, outs, length } = this.model.sumOf( this.unitName );
      return length ? [ ins[ length - 1 ], outs[ length - 1 ] ] : [ unit.rates[ 'in-bps' ], unit.rates[ 'out-bps' ] ];
   }
   facts() {
      const { model } = this;
      const now = model.now();
      return {
         from: now - recent, to: now, now, threshold: null, loadInterval: null, deadline: null, series: model.sumOf( this.unitName ),
         marks: unitMarks( model.events, this.unitName ),
      };
   }
}

/** One interface live: how it stands, why, and its curve. */
export class Panel {
   constructor( model, name, tall = false ) {
      this.model = model;
      this.name = name;
      this.badge = new Badge();
      this.why = h( 'p', { class: 'why' } );
      this.limit = h( 'span', { class: 'number' } );
      this.at = h( 'span', { class: 'at' } );
      this.rates = new Rates( keyed( 'limit', 'threshold', this.limit ), this.at );
      this.deadline = new Deadline();
      this.curve = new Curve( { name, tall, facts: () => this.facts(), onCursor: ( ...values ) => this.cursorIs( ...values ),
         onSight: ( seen ) => ( seen ? model.inSight.add( name ) : model.inSight.delete( name ) ) } );
      this.element = h( 'article', { class: 'panel' },
         h( 'header', {},
            tall ? null : h( 'h3', {}, h( 'a', { href: interfaceLink( name ) }, name ) ), this.badge.element ),
         this.why, this.curve.element,
         this.rates.element,
         this.deadline.element );
      this.pointed = null;
   }
   get intf() { return this.model.interfaces.get( this.name ); }
   update() {
      const { intf } = this;
      if ( !intf )
         return;
      const standing = interfaceStanding( intf );
      this.badge.update( standing );
      attribute( this.element, 'class', `panel ${standing.level}` );
      text( this.why, intf.reason?.text ?? '' );
      this.ratesAre( this.pointed ?? this.ratesNow() );
      text( this.limit, format.rate( this.threshold() ) );
      this.deadline.update( nextShutdown( [ intf ] ), this.model.now(), false );
      this.curve.dirtyIs();
   }
   remove() { this.curve.remove(); }
   ratesAre( [ time, inBps, outBps ] ) {
      this.rates.update( inBps, outBps );
      text( this.at, time === null ? '' : `at ${format.clock( time )}` );
   }
   cursorIs( time, inBps, outBps ) {
      this.pointed = time === null ? null : [ time, inBps, outBps ];
      if ( this.intf )
         this.ratesAre( this.pointed ?? this.ratesNow() );
   }
   ratesNow() { return [ null, this.intf[ 'in-bps' ], this.intf[ 'out-bps' ] ]; }
   /** What it is judged by now, or would be. */
   ofProfile( key ) {
      const { intf, model } = this;
      return intf?.reason?.[ key ] ?? model.profiles.get( intf?.profile )?.[ key ] ?? null;
   }
   threshold() { return this.ofProfile( 'threshold-bps' ); }
   facts() {
      const { intf, model, name } = this;
      const now = model.now();
      const deadline = intf && isPending( intf ) ? format.seconds( intf.reason[ 'shutdown-at' ] ) : null;
      // A deadline that is near is shown where it will be.
      const ahead = deadline !== null && deadline > now && deadline - now < recent / 3 ? ( deadline - now ) * 1.08 : 0;
      return {
         from: now - recent + ahead, to: now + ahead, now, deadline, threshold: this.threshold(),
         loadInterval: this.ofProfile( 'load-interval-seconds' ),
         series: model.seriesOf( name ), marks: model.storyOf( name ).marks( model.events ),
      };
   }
}

/** Of events that nobody here has been told of. */
const missedText = ( missed ) => ( missed ? `${missed} ${missed === 1 ? 'event' : 'events'} missed`
                                          : 'the agent has another log of events; what was in the one before is not known' );

/** What an event is about: [ words, address or none ], each. Of many interfaces it names `first`, or whoever comes first. */
function subjectOf( { type, subject, interfaces, count }, first ) {
   if ( subject || !interfaces?.length )
      return [ [ subject ?? '', subject && { unit: unitLink, interface: interfaceLink }[ type ]?.( subject ) ] ];
   const name = first ?? interfaces[ 0 ];
   return [ [ name, interfaceLink( name ) ], [ ` and ${count - 1} others` ] ];
}

/**
 * A table of events, newest first, with what is missing between them: rows as `Happened` gives them. `of`: the interface
 * that they are all about.
 */
export class EventTable {
   constructor( { caption, of = null } ) {
      this.of = of;
      this.body = h( 'tbody' );
      this.none = h( 'p', { class: 'none' }, 'nothing yet' );
      this.table = h( 'table', { class: 'events' }, h( 'caption', { class: 'unseen' }, caption ),
         h( 'thead', {}, h( 'tr', {}, h( 'th', { scope: 'col' }, 'Time (UTC)' ), h( 'th', { scope: 'col' }, 'Of' ),
            h( 'th', { scope: 'col' }, 'What' ) ) ),
         this.body );
      this.element = h( 'div', {}, this.table, this.none );
      this.rows = new Rows( this.body, ( each ) => ( each.before ? `${each.before.sequence}-${each.missed}` : each ),
         ( each ) => ( each.before ? this.gap( each ) : this.row( each ) ) );
   }
   /** When it was: with its day, unless that is near. */
   at( iso ) {
      const time = format.seconds( iso );
      const element = h( 'time', { datetime: iso, title: format.day( time ) } );
      let near = null;
      return { element, update: () => {
         // There may be thousands of rows.
         if ( near !== format.isNear( time, this.now ) ) {
            near = format.isNear( time, this.now );
            broken( element, format.moment( time, this.now ) );
         }
      } };
   }
   gap( { missed, before } ) {
      const at = this.at( before.time );
      return {
         element: h( 'tr', { class: 'missed' }, h( 'td', {}, at.element ), h( 'td', { colspan: 2 }, `… ${missedText( missed )}` ) ),
         update: at.update,
      };
   }
   row( event ) {
      const at = this.at( event.time );
      const subject = subjectOf( event, this.of ).map( ( [ words, href ] ) => ( href ? h( 'a', { href }, words ) : words ) );
      return {
         element: h( 'tr', { class: isAlarm( event ) ? 'alarm' : '' },
            h( 'td', {}, at.element ),
            h( 'td', {}, h( 'span', { class: 'type' }, event.type ), ' ', subject ),
            h( 'td', {}, isAlarm( event ) ? '! ' : '', event.text ?? event.what ?? '' ) ),
         update: at.update,
      };
   }
   update( events, now ) {
      this.now = now;
      this.rows.update( [ ...events ].reverse() );
      shown( this.table, events.length > 0 );
      shown( this.none, events.length === 0 );
   }
}

/** A link of several, with what comes between it and the next. */
function linkRow( { name, href } ) {
   const between = h( 'span' );
   return {
      element: h( 'span', {}, h( 'a', { href }, name ), between ),
      update: ( { last } ) => text( between, last ? '' : ', ' ),
   };
}

/** Words and what they stand for: `update( [ [ words, text or list of [ text, address ] ] ] )`. */
export class Facts {
   constructor() {
      this.element = h( 'dl', { class: 'facts' } );
      this.rows = new Rows( this.element, ( [ words ] ) => words, ( [ words ] ) => {
         const value = h( 'dd' );
         const links = new Rows( value, ( { href } ) => href, linkRow );
         return {
            element: h( 'div', {}, h( 'dt', {}, words ), value ),
            update( [ , now ] ) {
               if ( typeof now === 'string' )
                  text( value, now );
               else
                  links.update( now.map( ( [ name, href ], i ) => ( { name, href, last: i === now.length - 1 } ) ) );
            },
         };
      } );
   }
   update( facts ) { this.rows.update( facts ); }
}

/** The line above a view: where it is. */
export const crumbs = ( ...steps ) => h( 'nav', { 'class': 'crumbs', 'aria-label': 'Path' },
   steps.map( ( [ words, href ], i ) => [ i ? h( 'span', { 'aria-hidden': 'true' }, ' / ' ) : null,
      href ? h( 'a', { href }, words ) : h( 'span', { 'aria-current': 'page' }, words ) ] ).flat() );

export function unitBadge() {
   const badge = new Badge();
   return { element: badge.element, update: ( unit ) => badge.update( unitStanding( unit ) ) };
}

/** The earliest forced shutdown that is still to come: [ time, interface ]; null: none. */
export function nextShutdown( interfaces ) {
   let result = null;
   for ( const intf of interfaces )
      if ( isPending( intf ) ) {
         const at = format.seconds( intf.reason[ 'shutdown-at' ] );
         if ( !result || at < result[ 0 ] )
            result = [ at, intf.name ];
      }
   return result;
}
