// BLAKE2b (RFC 7693) and Argon2id (RFC 9106), written for small costs. Node's own crypto has no Argon2.

const MASK = (1n << 64n) - 1n
const IV = [
    0x6a09e667f3bcc908n, 0xbb67ae8584caa73bn, 0x3c6ef372fe94f82bn, 0xa54ff53a5f1d36f1n,
    0x510e527fade682d1n, 0x9b05688c2b3e6c1fn, 0x1f83d9abfb41bd6bn, 0x5be0cd19137e2179n,
]
const SIGMA = [
    [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15],
    [14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3],
    [11, 8, 12, 0, 5, 2, 15, 13, 10, 14, 3, 6, 7, 1, 9, 4],
    [7, 9, 3, 1, 13, 12, 11, 14, 2, 6, 5, 10, 4, 0, 15, 8],
    [9, 0, 5, 7, 2, 4, 10, 15, 14, 1, 11, 12, 6, 8, 3, 13],
    [2, 12, 6, 10, 0, 11, 8, 3, 4, 13, 7, 5, 15, 14, 1, 9],
    [12, 5, 1, 15, 14, 13, 4, 10, 0, 7, 6, 3, 9, 2, 8, 11],
    [13, 11, 7, 14, 12, 1, 3, 9, 5, 0, 15, 4, 8, 6, 2, 10],
    [6, 15, 14, 9, 11, 3, 0, 8, 12, 2, 13, 7, 1, 4, 10, 5],
    [10, 2, 8, 4, 7, 6, 1, 5, 15, 11, 9, 14, 3, 12, 13, 0],
]
const ror = (x, n) => ((x >> n) | (x << (64n - n))) & MASK

function mix(v, a, b, c, d, add) {
    v[a] = add(v[a], v[b], 0)
    v[d] = ror(v[d] ^ v[a], 32n)
    v[c] = add(v[c], v[d], 1)
    v[b] = ror(v[b] ^ v[c], 24n)
    v[a] = add(v[a], v[b], 2)
    v[d] = ror(v[d] ^ v[a], 16n)
    v[c] = add(v[c], v[d], 3)
    v[b] = ror(v[b] ^ v[c], 63n)
}

const LANES = [
    [0, 4, 8, 12], [1, 5, 9, 13], [2, 6, 10, 14], [3, 7, 11, 15],
    [0, 5, 10, 15], [1, 6, 11, 12], [2, 7, 8, 13], [3, 4, 9, 14],
]

export function blake2b(data, length) {
    const h = IV.slice()
    h[0] ^= 0x01010000n ^ BigInt(length)
    const padded = Buffer.alloc(Math.max(1, Math.ceil(data.length / 128)) * 128)
    data.copy(padded)
    for (let at = 0; at < padded.length; at += 128) {
        const last = at + 128 === padded.length
        const m = Array.from({ length: 16 }, (_, i) => padded.readBigUInt64LE(at + 8 * i))
        const v = h.concat(IV)
        v[12] ^= BigInt(last ? data.length : at + 128)
        if (last) v[14] ^= MASK
        for (let round = 0; round < 12; ++round) {
            LANES.forEach(([a, b, c, d], i) => {
                const words = [m[SIGMA[round % 10][2 * i]], m[SIGMA[round % 10][2 * i + 1]]]
                mix(v, a, b, c, d, (x, y, step) => (x + y + (step === 0 ? words[0] : step === 2 ? words[1] : 0n)) & MASK)
            })
        }
        for (let i = 0; i < 8; ++i) h[i] ^= v[i] ^ v[i + 8]
    }
    const out = Buffer.alloc(64)
    h.forEach((word, i) => out.writeBigUInt64LE(word, 8 * i))
    return out.subarray(0, length)
}

const le32 = n => { const b = Buffer.alloc(4); b.writeUInt32LE(n); return b }

function longHash(data, length) {
    const input = Buffer.concat([le32(length), data])
    if (length <= 64) return blake2b(input, length)
    const r = Math.ceil(length / 32) - 2
    const pieces = []
    let v = blake2b(input, 64)
    for (let i = 1; i <= r; ++i) {
        pieces.push(v.subarray(0, 32))
        v = blake2b(v, i < r ? 64 : length - 32 * r)
    }
    return Buffer.concat([...pieces, v])
}

const low = x => x & 0xffffffffn
const multiplyAdd = (a, b) => (a + b + 2n * low(a) * low(b)) & MASK

function permute(block, at) {
    const v = at.map(i => block[i])
    for (const [a, b, c, d] of LANES) mix(v, a, b, c, d, multiplyAdd)
    at.forEach((i, k) => { block[i] = v[k] })
}

function compress(x, y) {
    const r = x.map((word, i) => word ^ y[i])
    const q = r.slice()
    for (let i = 0; i < 8; ++i) permute(q, Array.from({ length: 16 }, (_, k) => 16 * i + k))
    for (let i = 0; i < 8; ++i) {
        permute(q, Array.from({ length: 16 }, (_, k) => 2 * i + 16 * (k >> 1) + (k & 1)))
    }
    return q.map((word, i) => word ^ r[i])
}

const words = bytes => Array.from({ length: 128 }, (_, i) => bytes.readBigUInt64LE(8 * i))
const zero = () => new Array(128).fill(0n)

export function argon2id({ password, salt, secret = Buffer.alloc(0), ad = Buffer.alloc(0), m, t, p, length }) {
    const field = bytes => Buffer.concat([le32(bytes.length), bytes])
    const h0 = blake2b(Buffer.concat([...[p, length, m, t, 0x13, 2].map(le32),
        field(password), field(salt), field(secret), field(ad)]), 64)
    const q = 4 * Math.floor(m / (4 * p))
    const segment = q / 4
    const memory = Array.from({ length: p }, (_, lane) => [0, 1].map(column =>
        words(longHash(Buffer.concat([h0, le32(column), le32(lane)]), 1024))))

    for (let pass = 0; pass < t; ++pass) {
        for (let slice = 0; slice < 4; ++slice) {
            for (let lane = 0; lane < p; ++lane) {
                const independent = pass === 0 && slice < 2
                let addresses = []
                for (let index = 0; index < segment; ++index) {
                    if (independent && index % 128 === 0) {
                        const z = zero();
                        [pass, lane, slice, p * q, t, 2, index / 128 + 1].forEach((n, i) => { z[i] = BigInt(n) })
                        addresses = compress(zero(), compress(zero(), z))
                    }
                    const column = slice * segment + index
                    if (pass === 0 && column < 2) continue
                    const previous = memory[lane][(column + q - 1) % q]
                    const random = independent ? addresses[index % 128] : previous[0]
                    const refLane = pass === 0 && slice === 0 ? lane : Number((random >> 32n) % BigInt(p))
                    const finished = pass === 0 ? slice * segment : q - segment
                    const area = BigInt(finished + (refLane === lane ? index - 1 : index === 0 ? -1 : 0))
                    const x = (low(random) * low(random)) >> 32n
                    const z = Number(area - 1n - ((area * x) >> 32n))
                    const start = pass === 0 || slice === 3 ? 0 : (slice + 1) * segment
                    const made = compress(previous, memory[refLane][(start + z) % q])
                    const old = memory[lane][column]
                    memory[lane][column] = pass === 0 ? made : made.map((word, i) => word ^ old[i])
                }
            }
        }
    }
    const last = memory.map(lane => lane[q - 1]).reduce((a, b) => a.map((word, i) => word ^ b[i]))
    const bytes = Buffer.alloc(1024)
    last.forEach((word, i) => bytes.writeBigUInt64LE(word, 8 * i))
    return longHash(bytes, length)
}
