/* A seed-to-key library as a device box would load it: key = seed XOR 0x5A, reversed. */
int seed_to_key(const unsigned char* seed, unsigned short seedLength, unsigned char* key,
                unsigned short* keyLength, void* extra) {
    (void)extra;
    if (seedLength == 0) return 0;
    for (unsigned short i = 0; i < seedLength; ++i) key[i] = seed[seedLength - 1 - i] ^ 0x5A;
    *keyLength = seedLength;
    return 1;
}
