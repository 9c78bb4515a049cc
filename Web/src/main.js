// The frame of the page: header, what is shown by the address, and whether what is shown is still true.

import 'uplot/dist/uPlot.min.css';
import './page.css';
import { attribute, h, keepingFocus, shown, text } from './dom.js';
import * as format from './format.js';
import { Model } from './model.js';
import { statistics } from './curve.js';
import { EventsView } from './views/events.js';
import { HistoryView } from './views/history.js';
import { InterfaceView } from './views/interface.js';
import { RecordView } from './views/record.js';
import { UnitsView } from './views/units.js';
import { UnitView } from './views/unit.js';

const views = [
   [ /^$/, UnitsView ],
   [ /^unit\/([^/]+)$/, UnitView ],
   [ /^interface\/([^/]+)$/, InterfaceView ],
   [ /^events$/, EventsView ],
   [ /^history$/, HistoryView ],
   [ /^history\/([^/]+)$/, RecordView ],
];

/** How the line to the agent is. */
const links = {
   asking: [ '○ asking', 'quiet' ],
   asleep: [ '○ asleep', 'quiet' ],
   live: [ '● live', 'good' ],
   late: [ '◐ live, reads late', 'warn' ],
   polling: [ '◐ polling, no live stream', 'warn' ],
   stale: [ '✕ stale', 'alarm' ],
};

class Page {
   constructor() {
      this.model = new Model();
      this.clock = h( 'span', { class: 'clock' } );
      this.link = h( 'span', { class: 'link' } );
      this.about = h( 'span', { class: 'about-agent' } );
      this.stale = h( 'p', { class: 'banner stale', role: 'status' } );
      this.late = h( 'p', { class: 'banner late', role: 'status' } );
      this.problems = h( 'div', { class: 'banner problems', role: 'status' } );
      this.spoken = h( 'p', { 'class': 'unseen', 'role': 'log', 'aria-live': 'polite' } );
      this.main = h( 'main', { id: 'main', tabindex: '-1' } );
      this.nav = [ [ 'Units', '#/' ], [ 'Events', '#/events' ], [ 'History', '#/history' ] ]
                    .map( ( [ words, href ] ) => h( 'a', { href }, words ) );
      const skip = h( 'a', { class: 'skip', href: '#/', onclick: ( event ) => {
         event.preventDefault();
         this.main.focus();
      } }, 'To the content' );
      document.body.replaceChildren(
         h( 'header', { class: 'top' }, skip, h( 'a', { class: 'brand', href: '#/' }, 'drainwatch' ),
            h( 'nav', { 'aria-label': 'Views' }, this.nav ),
            h( 'div', { class: 'right' }, this.about, this.clock, this.link ) ),
         h( 'div', { class: 'banners' }, this.stale, this.late, this.problems ), this.main, this.spoken );
      this.model.subscribe( () => this.update() );
      this.model.unitListeners.add( ( unit ) => this.speak( `${unit.name}: ${unit.state}` ) );
      addEventListener( 'hashchange', () => this.route( true ) );
      setInterval( () => this.tick(), 1000 );
      this.route( false );
      this.model.start();
   }
   route( moved ) {
      const path = location.hash.replace( /^#\/?/, '' );
      let view = null;
      for ( const [ pattern, View ] of views ) {
         const match = pattern.exec( path );
         if ( match )
            view = new View( this.model, ...match.slice( 1 ).map( decode ) );
      }
      view ??= new UnitsView( this.model );
      this.view?.remove();
      this.view = view;
      this.main.replaceChildren( view.element );
      document.title = `${view.title} · drainwatch`;
      for ( const link of this.nav ) {
         const own = link.getAttribute( 'href' ).replace( /^#\/?/, '' );
         const here = own === '' ? path === '' || /^(unit|interface)\//.test( path ) : path.startsWith( own );
         attribute( link, 'aria-current', here ? 'page' : null );
      }
      if ( moved ) {
         scrollTo( 0, 0 );
         this.main.focus( { preventScroll: true } );
      }
      this.update();
   }
   /** In words for whoever listens: only what changes the state of a unit. */
   speak( words ) {
      this.spoken.append( h( 'span', {}, `${words}. ` ) );
      while ( this.spoken.childNodes.length > 5 )
         this.spoken.firstChild.remove();
   }
   update() {
      const { model } = this;
      const { agent, staleSince, lateSince } = model;
      const since = staleSince === null ? '' : format.clock( staleSince );
      document.body.classList.toggle( 'is-stale', staleSince !== null );
      shown( this.stale, staleSince !== null );
      text( this.stale, staleSince === null ? '' :
         `The agent does not answer. What you see is stale since ${since} UTC; the page goes on by itself when it is back.` );
      shown( this.late, lateSince !== null );
      text( this.late, lateSince === null ? '' : `Events and rates come, but nothing that is asked for: all else is as of ${
         format.clock( lateSince )} UTC. A browser does this when the page is open in many windows.` );
      const [ words, level ] = links[ model.stream.state ];
      text( this.link, staleSince === null ? words : `${words} since ${since}` );
      attribute( this.link, 'class', `link ${level}` );
      text( this.about, agent ? `${agent.switch === 'simulated' ? 'simulated switch' : 'this switch'} · agent ${agent.version}` : '' );
      const problems = ( agent?.problems ?? [] ).map( ( problem ) => `${problem.what}: ${problem.text}` );
      problems.push( ...model.problems );
      shown( this.problems, problems.length > 0 );
      const lines = problems.join( '\n' );
      if ( this.problems.dataset.lines !== lines ) {
         this.problems.dataset.lines = lines;
         this.problems.replaceChildren( ...problems.map( ( problem ) =>
            h( 'p', {}, h( 'span', { 'aria-hidden': 'true' }, '! ' ), problem ) ) );
      }
      this.tick( false );
      keepingFocus( this.main, () => this.view.update() );
   }
   tick( all = true ) {
      text( this.clock, this.model.agent ? `${format.clock( this.model.now() )} UTC` : '' );
      // Times that run: curves move on, deadlines come nearer.
      if ( all && this.model.staleSince === null && !document.hidden )
         keepingFocus( this.main, () => this.view.update() );
   }
}

function decode( part ) {
   try {
      return decodeURIComponent( part );
   } catch {
      return part;
   }
}

const page = new Page();
/** For the tests of the page: how much work it does. */
globalThis.drainwatch = { statistics, model: page.model };
