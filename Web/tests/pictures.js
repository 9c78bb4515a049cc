// What the pictures of the README show: a drain on the simulated switch, in virtual time and with fixed traffic, so that each
// run gives the same story.

import { createHash } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Agent } from './agent.js';
import { launch, open, soon } from './browser.js';

const here = dirname( fileURLToPath( import.meta.url ) );
/** Where the pictures are, and what was on the page when they were taken. */
export const folder = join( here, '../../docs/pictures' );
export const told = join( folder, 'drain.txt' );

/** Steady for a while, then falling by half each `half` seconds: a ramp a halving. */
const fading = ( steady, rate, half, floor = 0 ) => {
   const parts = [ `{for: ${steady}s, in: ${rate}kbps, out: ${Math.round( rate * 0.72 )}kbps}` ];
   for ( let now = rate / 2; now >= Math.max( floor, 4 ); now /= 2 )
      parts.push( `{ramp: ${half}s, in: ${Math.round( now )}kbps, out: ${Math.round( now * 0.72 )}kbps}` );
   parts.push( floor ? `{for: 24h, in: ${floor}kbps, out: ${Math.round( floor / 9 )}kbps}` : '{ramp: 10s, to: 0bps}' );
   return `{traffic: [${parts.join( ', ' )}]}`;
};

const configuration = ( web ) => `
version: 1
switch: simulated
listen: {web: "${web}"}
settle: 10s
profiles:
  fast:  {threshold: 100kbps, load-interval: 20s, shutdown: true, shutdown-max-delay: 6m}
  watch: {threshold: 1Mbps, load-interval: 30s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, et3, et4, et5, bond0]}
  tenants: {vlans: [10], profile: watch}
  others:  {interfaces: [et6]}
units:
  spine-a: {groups: [uplinks, tenants]}
  spine-b: {groups: [others]}
simulated:
  clock: virtual
  ports:
    et1: ${fading( 70, 410000, 7 )}
    et2: ${fading( 75, 380000, 8 )}
    et3: ${fading( 80, 400000, 17 )}
    et4: ${fading( 72, 95000, 9 )}
    et5: ${fading( 78, 240000, 12 )}
    et6: {traffic: [{for: 24h, in: 120Mbps, out: 90Mbps}]}
    et7: ${fading( 70, 120000, 9, 155 )}
    et8: ${fading( 72, 130000, 9, 155 )}
    et9: ${fading( 75, 60000, 8 )}
  port-channels: {bond0: [et7, et8]}
  vlans:
    10: {name: vlan10, members: [et9]}
`;

/** Sources that say how the page is drawn. */
const drawn = [ 'page.css', 'curve.js' ];

/**
 * What somebody sees on the page, a line for each element, and which sources draw it. Digits are all 0: times go on, and
 * nothing here depends on fonts.
 */
async function outline( page ) {
   const digests = drawn.map( ( name ) =>
      `${name} ${createHash( 'sha256' ).update( readFileSync( join( here, '../src', name ) ) ).digest( 'hex' )}` );
   const lines = await page.evaluate( () => {
      const result = [];
      const walk = ( element, depth ) => {
         // Curves are alive in sight only; other words are for those who see no picture.
         if ( !element.checkVisibility() || element.matches( '.curve-box, .unseen' ) )
            return;
         const own = [ ...element.childNodes ].filter( ( node ) => node.nodeType === Node.TEXT_NODE )
                        .map( ( node ) => node.textContent.trim() ).filter( Boolean ).join( ' ' ).replace( /[\d.]*\d/g, '0' );
         const name = [ element.localName, ...element.classList ].join( '.' );
         result.push( `${' '.repeat( depth )}${name}${own ? ` ${own}` : ''}` );
         for ( const child of element.children )
            walk( child, depth + 1 );
      };
      for ( const each of document.body.children )
         walk( each, 0 );
      return result;
   } );
   return `${[ '# What is on the page of these pictures. Web/tests/screenshots.js takes them, and writes this.', ...digests,
      ...lines ].join( '\n' )}\n`;
}

/** Plays the story, and shows its page in each of the schemes: `take( page, scheme, outline )`. */
export async function play( schemes, take ) {
   const agent = await Agent.start( configuration );
   const browser = await launch();
   try {
      for ( let time = 0; time < 60; time += 5 )
         await agent.advance( 5 );
      await agent.post( 'units/spine-a/enter', { reason: 'replace the line card' } );
      for ( let time = 0; time < 205; time += 5 )
         await agent.advance( 5 );
      for ( const colorScheme of schemes ) {
         const { page, context, wrong } = await open( browser, `${agent.address}#/unit/spine-a`,
            { colorScheme, viewport: { width: 1280, height: 850 } } );
         await page.locator( '.link.good' ).waitFor();
         await soon( async () => {
            if ( await page.locator( '.panel canvas' ).count() < 6 )
               throw new Error( 'curves are missing' );
         } );
         await page.evaluate( () => new Promise( ( done ) => { requestAnimationFrame( () => requestAnimationFrame( done ) ); } ) );
         await take( page, colorScheme, await outline( page ) );
         await context.close();
         if ( wrong.length )
            throw new Error( wrong.join( '\n' ) );
      }
   } finally {
      await browser.close();
      await agent.stop();
   }
}
