// Makes the pictures of the README anew: node Web/tests/screenshots.js BUILD-FOLDER

import { mkdirSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';

process.env.MAINT_BUILD = resolve( process.argv[ 2 ] ?? 'build/release' );
const { folder, play, told } = await import( './pictures.js' );

mkdirSync( folder, { recursive: true } );
await play( [ 'light', 'dark' ], async ( page, scheme, outline ) => {
   await page.screenshot( { path: join( folder, `drain-${scheme}.png` ) } );
   writeFileSync( told, outline );
} );
