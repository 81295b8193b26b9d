// Host GUEST [crash]: a program whose run-time makes panics of null pointers, with the library loaded by C code.
package main

/*
#cgo LDFLAGS: -ldl
#include <dlfcn.h>
#include <stdlib.h>

static int (*install)(void);
static void (*crash)(void);

static int load(const char* guest) {
    void* module = dlopen(guest, RTLD_NOW);
    if (module == NULL) return 0;
    install = (int (*)(void))dlsym(module, "GuestInstall");
    crash = (void (*)(void))dlsym(module, "GuestCrash");
    return install != NULL && crash != NULL && install();
}

static void crash_in_c(void) { crash(); }
*/
import "C"

import (
	"fmt"
	"os"
	"sync"
	"sync/atomic"
)

var nowhere *int

func faults() (caught int32) {
	defer func() {
		if recover() != nil {
			caught = 1
		}
	}()
	*nowhere = 1
	return 0
}

func main() {
	fmt.Println(C.load(C.CString(os.Args[1])))
	var caught int32
	var group sync.WaitGroup
	for i := 0; i != 4; i++ {
		group.Add(1)
		go func() {
			defer group.Done()
			for k := 0; k != 1000; k++ {
				atomic.AddInt32(&caught, faults())
			}
		}()
	}
	group.Wait()
	fmt.Println(caught)
	if len(os.Args) > 2 {
		C.crash_in_c()
	}
}
