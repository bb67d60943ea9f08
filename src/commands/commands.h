// Every command handler and its help texts. The command tables of the shell
// list them; each family's file defines its own.
#pragma once

#include "util/command.h"

#define KRT_DECLARE_COMMAND(handler, name)                         \
    int handler(int argc, char **argv, const Command_Info *entry); \
    extern const char name##_help[];                               \
    extern const char name##_sh[]
// A command that reads options: the tables its handler parses with.
#define KRT_DECLARE_OPTIONS(name) extern const CommandOptions name##_options

// Public commands.
KRT_DECLARE_COMMAND(doHelp, help);
KRT_DECLARE_COMMAND(doAdapter, adapter);
KRT_DECLARE_COMMAND(doVersion, version);
KRT_DECLARE_COMMAND(doSmart, smart);
KRT_DECLARE_COMMAND(doFlash, flash);
KRT_DECLARE_COMMAND(doSLog, log);
KRT_DECLARE_COMMAND(doSInfo, info);
KRT_DECLARE_COMMAND(doSEvent, event);
KRT_DECLARE_COMMAND(doSImport, import);
KRT_DECLARE_COMMAND(doSINIT, init);
KRT_DECLARE_COMMAND(doSMP, mp);
KRT_DECLARE_COMMAND(doSRebuild, rebuild);
KRT_DECLARE_COMMAND(doSDEBUGLV, debuglv);
KRT_DECLARE_COMMAND(doSGet, get);
KRT_DECLARE_COMMAND(doSSet, set);
KRT_DECLARE_COMMAND(doPassthru, passthru);
KRT_DECLARE_COMMAND(doSPI, spi);
KRT_DECLARE_COMMAND(doSVD, vd);
KRT_DECLARE_COMMAND(doSReset, reset);
KRT_DECLARE_COMMAND(doSLed, led);
KRT_DECLARE_COMMAND(doSVPD, vpd);
KRT_DECLARE_COMMAND(doSDUMPHBA, dumphba);
KRT_DECLARE_COMMAND(doSGPIO, gpio);
KRT_DECLARE_COMMAND(doSNS, ns);
KRT_DECLARE_COMMAND(doIdentify, identify);
KRT_DECLARE_COMMAND(doInverse, inverse);
KRT_DECLARE_COMMAND(doVPDRead, vpdread);
extern const char help_q_sh[];  // the summary of "?"

// Hidden commands.
KRT_DECLARE_COMMAND(doDebug, debug);
KRT_DECLARE_COMMAND(doGen, gen);
KRT_DECLARE_COMMAND(doSReg, reg);
KRT_DECLARE_COMMAND(doSDVF, dvf);
KRT_DECLARE_COMMAND(doSProtect, protect);
KRT_DECLARE_COMMAND(doSi2c, i2c);
KRT_DECLARE_COMMAND(doSpcie, pcie);
KRT_DECLARE_COMMAND(doSSRIOV, sriov);
KRT_DECLARE_COMMAND(doHotkey, hotkey);
KRT_DECLARE_COMMAND(doSGetOEMdata, getoemdata);
KRT_DECLARE_COMMAND(doMIPassthruRead, mi_passthruread);
KRT_DECLARE_COMMAND(doMIPassthruWrite, mi_passthruwrite);
KRT_DECLARE_COMMAND(doSVM_cmd, vm_cmd);

// The commands that read options.
KRT_DECLARE_OPTIONS(help);
KRT_DECLARE_OPTIONS(adapter);
KRT_DECLARE_OPTIONS(version);
KRT_DECLARE_OPTIONS(smart);
KRT_DECLARE_OPTIONS(flash);
KRT_DECLARE_OPTIONS(log);
KRT_DECLARE_OPTIONS(info);
KRT_DECLARE_OPTIONS(event);
KRT_DECLARE_OPTIONS(import);
KRT_DECLARE_OPTIONS(init);
KRT_DECLARE_OPTIONS(mp);
KRT_DECLARE_OPTIONS(rebuild);
KRT_DECLARE_OPTIONS(debuglv);
KRT_DECLARE_OPTIONS(get);
KRT_DECLARE_OPTIONS(set);
KRT_DECLARE_OPTIONS(passthru);
KRT_DECLARE_OPTIONS(spi);
KRT_DECLARE_OPTIONS(vd);
KRT_DECLARE_OPTIONS(reset);
KRT_DECLARE_OPTIONS(led);
KRT_DECLARE_OPTIONS(ns);
KRT_DECLARE_OPTIONS(identify);
KRT_DECLARE_OPTIONS(inverse);
KRT_DECLARE_OPTIONS(debug);

#undef KRT_DECLARE_COMMAND
#undef KRT_DECLARE_OPTIONS
