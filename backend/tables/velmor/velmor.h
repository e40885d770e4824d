#pragma once

// All of velmor: sufficient statistics in one parallel pass over the data.

#include <velmor/DiscriminantMatrix.h>
#include <velmor/DscIndividualMatrix.h>
#include <velmor/accumulate.h>
#include <velmor/auto_array.h>
#include <velmor/blockforest.h>
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>
#include <velmor/driver.h>
#include <velmor/groupsummary.h>
#include <velmor/kernels.h>
#include <velmor/matrixbase.h>
#include <velmor/matrixlistwise.h>
#include <velmor/matrixpairwise.h>
#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>
#include <velmor/state.h>
#include <velmor/statistics.h>
#include <velmor/summary.h>
#include <velmor/tableview.h>
