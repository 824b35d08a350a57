vorna_bench(NAME bm_usb SOURCES bm_usb.cpp DEPS fxtree usb emulation_attach emulation_boards)
