/* Lets what clang compiles for the GNUstep 1.9 runtime, the one for which it offers ARC on this machine, run
 * on GCC's Objective-C runtime.
 *
 * Both describe a module by the same structures, but for what is named below. The program is linked with
 * --wrap=__objc_exec_class, so that every module passes through here before GCC's runtime takes it. */

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct KXClass *KXClassRef;
typedef void (*KXImplementation)(void);

struct KXInstanceVariables {
  int count;
  struct {
    const char *name;
    const char *type;
    int offset;
  } variables[];
};

struct KXProtocols;
struct KXProtocol {
  uintptr_t version; /* before the runtime puts a class there */
  const char *name;
  struct KXProtocols *adopted;
};
struct KXProtocols {
  struct KXProtocols *next;
  size_t count;
  struct KXProtocol *protocols[];
};

struct KXClass {
  KXClassRef metaclass;
  const char *superclassName; /* before the runtime puts the class there */
  const char *name;
  long version;
  unsigned long info;
  long instanceSize;
  struct KXInstanceVariables *instanceVariables;
  void *methods;
  void *dispatchTable;
  KXClassRef subclasses;
  KXClassRef siblings;
  struct KXProtocols *protocols;
  void *collectorType;
  /* What follows, GCC's runtime does not know. */
  unsigned long abiVersion;
  int **instanceVariableOffsets; /* by which the compiled code finds them */
};

struct KXCategory {
  const char *name;
  const char *className;
  void *instanceMethods;
  void *classMethods;
  struct KXProtocols *protocols;
};

struct KXSymbols {
  unsigned long selectorCount;
  void *selectors;
  unsigned short classCount;
  unsigned short categoryCount;
  void *definitions[]; /* the classes, then the categories */
};

struct KXModule {
  unsigned long version;
  unsigned long size;
  const char *fileName;
  struct KXSymbols *symbols;
};

enum { firstGNUstepModuleVersion = 9, gccModuleVersion = 8, gccModuleSize = 4 * sizeof(void *) };
enum { gnustepProtocolVersion = 3, gccProtocolVersion = 2 };
enum { gccClassSize = offsetof(struct KXClass, abiVersion) };
static const unsigned long metaclassFlag = 0x2;
static const unsigned long gnustepABIFlag = 0x10; /* to GCC's runtime: a class under construction */

extern KXClassRef objc_lookUpClass(const char *name);
extern KXImplementation objc_msg_lookup(void *receiver, void *selector);
extern KXImplementation objc_msg_lookup_super(void *receiver, void *selector);
extern void __real___objc_exec_class(struct KXModule *module);
void __wrap___objc_exec_class(struct KXModule *module);

static void translateProtocols(struct KXProtocols *list) {
  for (; list != NULL; list = list->next) {
    for (size_t index = 0; index < list->count; ++index) {
      struct KXProtocol *protocol = list->protocols[index];
      if (protocol == NULL || protocol->version != gnustepProtocolVersion) continue;
      protocol->version = gccProtocolVersion;
      translateProtocols(protocol->adopted);
    }
  }
}

static KXClassRef classInModule(const struct KXSymbols *symbols, const char *name) {
  for (unsigned index = 0; index < symbols->classCount; ++index) {
    KXClassRef candidate = symbols->definitions[index];
    if (strcmp(candidate->name, name) == 0) return candidate;
  }
  return NULL;
}

/* A class that does not know its superclass's size yet has a negative size, its own variables', and offsets
 * that count from their beginning. */
static void layOut(KXClassRef class, const struct KXSymbols *symbols) {
  if (class->instanceSize > 0 || (class->info & metaclassFlag) != 0) return;
  long start = 0;
  if (class->superclassName != NULL) {
    KXClassRef superclass = classInModule(symbols, class->superclassName);
    if (superclass != NULL) layOut(superclass, symbols);
    if (superclass == NULL) superclass = objc_lookUpClass(class->superclassName);
    if (superclass == NULL) {
      fprintf(stderr, "%s is linked before its superclass %s\n", class->name, class->superclassName);
      abort();
    }
    start = superclass->instanceSize;
  }
  class->instanceSize = start - class->instanceSize;
  if (class->instanceVariables == NULL) return;
  for (int index = 0; index < class->instanceVariables->count; ++index) {
    class->instanceVariables->variables[index].offset += (int)start;
    int *offset = class->instanceVariableOffsets != NULL ? class->instanceVariableOffsets[index] : NULL;
    if (offset != NULL) *offset = class->instanceVariables->variables[index].offset;
  }
}

void __wrap___objc_exec_class(struct KXModule *module) {
  if (module->version >= firstGNUstepModuleVersion) {
    struct KXSymbols *symbols = module->symbols;
    for (unsigned index = 0; index < symbols->classCount; ++index) {
      KXClassRef class = symbols->definitions[index];
      layOut(class, symbols);
      class->info &= ~gnustepABIFlag;
      class->metaclass->info &= ~gnustepABIFlag;
      class->metaclass->instanceSize = gccClassSize;
      translateProtocols(class->protocols);
    }
    for (unsigned index = 0; index < symbols->categoryCount; ++index) {
      const struct KXCategory *category = symbols->definitions[symbols->classCount + index];
      translateProtocols(category->protocols);
    }
    module->version = gccModuleVersion;
    module->size = gccModuleSize;
  }
  __real___objc_exec_class(module);
}

/* ---- Messages. The compiled code asks for a slot, whose fifth member is the implementation. */

struct KXSlot {
  void *owner;
  void *cachedFor;
  const char *types;
  int version;
  KXImplementation implementation;
};

struct KXSlot *objc_msg_lookup_sender(void **receiver, void *selector, void *sender);
struct KXSlot *objc_slot_lookup_super(void *receiver, void *selector);

/* The slot of that implementation: always the same one, which never changes. */
static struct KXSlot *slotFor(KXImplementation implementation) {
  struct Entry {
    struct KXSlot slot;
    struct Entry *next;
  };
  enum { bucketCount = 1024 };
  static struct Entry *buckets[bucketCount];
  struct Entry **bucket = &buckets[((uintptr_t)implementation >> 4) % bucketCount];
  struct Entry *first = __atomic_load_n(bucket, __ATOMIC_ACQUIRE);
  for (struct Entry *entry = first; entry != NULL; entry = entry->next) {
    if (entry->slot.implementation == implementation) return &entry->slot;
  }
  struct Entry *added = calloc(1, sizeof *added);
  if (added == NULL) abort();
  added->slot.implementation = implementation;
  added->next = first;
  while (!__atomic_compare_exchange_n(bucket, &added->next, added, 0, __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
  }
  return &added->slot;
}

struct KXSlot *objc_msg_lookup_sender(void **receiver, void *selector, void *sender) {
  (void)sender;
  return slotFor(objc_msg_lookup(*receiver, selector));
}

struct KXSlot *objc_slot_lookup_super(void *receiver, void *selector) {
  return slotFor(objc_msg_lookup_super(receiver, selector));
}
