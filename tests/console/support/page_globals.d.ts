// Properties that the scripts of tests add to the page's window.
interface Window {
  /** Added by the accessibility tests. */
  axe: typeof import('axe-core');
  /** The page's WebSockets, oldest first. */
  sockets: WebSocket[];
  /** The text that was last written to the clipboard. */
  written: string;
  /** The largest number of bytes that waited in the page's WebSocket. */
  mostWaiting: number;
  /** Milliseconds by which the page's clock is ahead. */
  ahead: number;
  /** Stands in for the media query of full screen. */
  wholeScreen: EventTarget & { matches: boolean };
  /** Whether the page's clipboard refuses to be written, as without focus. */
  away: boolean;
  /** How often the page's clipboard was read. */
  reads: number;
  /** Fulfilled by release(): lets what a test has held back go on. */
  released: Promise<unknown>;
  release: () => void;
  /** Bytes of binary messages that the page has received. */
  receivedBytes: number;
  /** Whether the page's decoders are slow. */
  isSlow: boolean;
  /** The alive messages that the relay has sent. */
  alive: number;
  /** The content that the page saved last. */
  savedBlob: Blob;
}
